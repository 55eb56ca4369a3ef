#include "tools/serve/library/text_pool.h"

#include <algorithm>
#include <cstring>

#include "base/text/fold.h"
#include "base/text/utf8.h"

namespace koli::serve {
namespace {

constexpr size_t kEntryMax = 8192;        // bytes: a path's name and some texts of a record
constexpr size_t kEntriesOfBlock = 1024;  // on the average, when they are short

size_t HashOf(std::string_view text) {
    return std::hash<std::string_view>{}(text);
}

/// Bytes of the character at the beginning, which may be one that is no UTF-8.
size_t CharacterLength(std::string_view text) {
    return std::max<size_t>(Utf8Length(text), 1);
}

}  // namespace

void FoldLineTo(std::string_view text, std::string* folded) {
    FoldTo(text, folded);
    for (char& c : *folded)
        if (c == '\n' || c == '\0') c = ' ';
}

// ---- Filling

void TextPool::ShareWith(const TextPool& earlier) {
    for (const auto& block : earlier.blocks_)
        earlier_.emplace(HashOf(block->text), block);
}

uint32_t TextPool::Add(std::string_view text, std::string_view others) {
    std::string entry;
    FoldLineTo(text, &entry);
    entry.append("\n").append(others);
    if (entry.size() > kEntryMax) entry.resize(kEntryMax);
    if (open_.text.size() + entry.size() >= kBlockSize) CloseBlock();
    const size_t at = open_.text.size();
    const auto place = static_cast<uint32_t>(blocks_.size() * kBlockSize + at);
    open_.text.append(entry).push_back('\0');
    open_.capitals.resize(open_.text.size() / 8 + 1);
    if (!SetCapitals(text, Folded(place), at)) AddOriginal(text, at);
    if (HashOf(entry) % kEntriesOfBlock == 0) CloseBlock();
    return place;
}

void TextPool::Finish() {
    CloseBlock();
    open_ = {};
    earlier_.clear();
    blocks_.shrink_to_fit();
}

/// A copy has no more room than it needs.
void TextPool::CloseBlock() {
    if (open_.text.empty()) return;
    const auto earlier = earlier_.find(HashOf(open_.text));
    const bool is_shared = earlier != earlier_.end() && *earlier->second == open_;
    blocks_.push_back(is_shared ? earlier->second : std::make_shared<const Block>(open_));
    open_.text.clear();
    open_.capitals.clear();
    open_.originals.clear();
    open_.spelled.clear();
}

void TextPool::AddOriginal(std::string_view text, size_t at) {
    open_.originals.push_back({static_cast<uint32_t>(at), static_cast<uint32_t>(open_.spelled.size())});
    open_.spelled.append(text.substr(0, text.find('\0'))).push_back('\0');
}

/// False when the text differs from the folded one in more than its capitals.
bool TextPool::SetCapitals(std::string_view text, std::string_view folded, size_t at) {
    if (text.size() != folded.size()) return false;
    std::vector<size_t> capitals;
    for (size_t i = 0, length = 0; i < text.size(); i += length) {
        length = CharacterLength(folded.substr(i));
        const std::string_view letter = text.substr(i, length), small = folded.substr(i, length);
        if (letter == small) continue;
        if (Capital(small) != letter) return false;
        capitals.push_back(at + i);
    }
    for (const size_t capital : capitals)
        open_.capitals[capital / 8] |= static_cast<uint8_t>(1U << (capital % 8));
    return true;
}

// ---- Asking

const TextPool::Block& TextPool::BlockOf(uint32_t place) const {
    const size_t index = place / kBlockSize;
    return index < blocks_.size() ? *blocks_[index] : open_;
}

std::string TextPool::Text(uint32_t place) const {
    const Block& block = BlockOf(place);
    const auto begin = static_cast<uint32_t>(place % kBlockSize);
    const auto original =
        std::lower_bound(block.originals.begin(), block.originals.end(), begin,
                         [](const Original& one, uint32_t wanted) { return one.at < wanted; });
    if (original != block.originals.end() && original->at == begin)
        return block.spelled.c_str() + original->begin;
    std::string text(Folded(place));
    for (size_t i = 0, at = begin; i < text.size(); ++i, ++at)
        if ((block.capitals[at / 8] >> (at % 8) & 1) != 0) {
            const size_t length = CharacterLength(std::string_view(text).substr(i));
            text.replace(i, length, Capital(std::string_view(text).substr(i, length)));
        }
    return text;
}

std::string_view TextPool::Entry(uint32_t place) const {
    return BlockOf(place).text.c_str() + place % kBlockSize;
}

std::string_view TextPool::Folded(uint32_t place) const {
    const char* const begin = BlockOf(place).text.c_str() + place % kBlockSize;
    const char* const end = strchrnul(begin, '\n');
    return {begin, static_cast<size_t>(end - begin)};
}

uint32_t TextPool::Find(std::string_view word, uint32_t from) const {
    size_t begin = from % kBlockSize;
    for (size_t index = from / kBlockSize; index < blocks_.size(); ++index, begin = 0) {
        const std::string& text = blocks_[index]->text;
        if (begin >= text.size()) continue;
        const void* const found = memmem(text.data() + begin, text.size() - begin, word.data(), word.size());
        if (found != nullptr)
            return static_cast<uint32_t>(index * kBlockSize +
                                         static_cast<size_t>(static_cast<const char*>(found) - text.data()));
    }
    return kNone;
}

}  // namespace koli::serve
