#include "tools/serve/library/text_pool.h"

#include <cstring>

#include "base/text/fold.h"

namespace koli::serve {
namespace {

constexpr size_t kEntryMax = 8192;  // bytes: a path's name and some texts of a record
constexpr char kCapitalBit = 0x20;

bool IsCapital(char c) {
    return c >= 'A' && c <= 'Z';
}

}  // namespace

void FoldLineTo(std::string_view text, std::string* folded) {
    FoldTo(text, folded);
    for (char& c : *folded)
        if (c == '\n' || c == '\0') c = ' ';
}

uint32_t TextPool::Add(std::string_view text, std::string_view others) {
    std::string entry;
    FoldLineTo(text, &entry);
    entry.append("\n").append(others);
    if (entry.size() > kEntryMax) entry.resize(kEntryMax);
    if (used_ + entry.size() >= kBlockSize) {
        blocks_.push_back(std::make_unique<Block>());
        used_ = 0;
    }
    const auto place = static_cast<uint32_t>((blocks_.size() - 1) * kBlockSize + used_);
    memcpy(blocks_.back()->text + used_, entry.data(), entry.size());
    used_ += entry.size() + 1;
    if (!SetCapitals(text, Folded(place), place)) AddOriginal(text, place);
    return place;
}

void TextPool::AddOriginal(std::string_view text, uint32_t place) {
    originals_.push_back({place, static_cast<uint32_t>(spelled_.size())});
    for (const char c : text.substr(0, text.find('\0')))
        spelled_.push_back(c);
    spelled_.push_back('\0');
}

/// False when the text differs from the folded one in more than its capitals.
bool TextPool::SetCapitals(std::string_view text, std::string_view folded, uint32_t place) {
    if (text.size() != folded.size()) return false;
    for (size_t i = 0; i < text.size(); ++i)
        if (text[i] != folded[i] && !(IsCapital(text[i]) && (text[i] | kCapitalBit) == folded[i]))
            return false;
    Block& block = *blocks_.back();
    for (size_t i = 0, at = place % kBlockSize; i < text.size(); ++i, ++at)
        if (IsCapital(text[i])) block.capitals[at / 8] |= static_cast<uint8_t>(1U << (at % 8));
    return true;
}

std::string TextPool::Text(uint32_t place) const {
    size_t first = 0;  // original at or behind the place
    for (size_t behind = originals_.size(); first < behind;) {
        const size_t middle = (first + behind) / 2;
        if (originals_[middle].place < place)
            first = middle + 1;
        else
            behind = middle;
    }
    if (first < originals_.size() && originals_[first].place == place) {
        std::string text;
        for (size_t at = originals_[first].begin; spelled_[at] != '\0'; ++at)
            text += spelled_[at];
        return text;
    }
    std::string text(Folded(place));
    const Block& block = *blocks_[place / kBlockSize];
    for (size_t i = 0, at = place % kBlockSize; i < text.size(); ++i, ++at)
        if ((block.capitals[at / 8] >> (at % 8) & 1) != 0)
            text[i] = static_cast<char>(text[i] & ~kCapitalBit);
    return text;
}

std::string_view TextPool::Entry(uint32_t place) const {
    return blocks_[place / kBlockSize]->text + place % kBlockSize;
}

std::string_view TextPool::Folded(uint32_t place) const {
    const char* const begin = blocks_[place / kBlockSize]->text + place % kBlockSize;
    const char* const end = strchrnul(begin, '\n');
    return {begin, static_cast<size_t>(end - begin)};
}

uint32_t TextPool::Find(std::string_view word, uint32_t from) const {
    for (size_t index = from / kBlockSize, begin = from % kBlockSize; index < blocks_.size();
         ++index, begin = 0) {
        const char* const text = blocks_[index]->text;
        const size_t end = index + 1 < blocks_.size() ? kBlockSize : used_;
        if (begin >= end) continue;
        const void* const found = memmem(text + begin, end - begin, word.data(), word.size());
        if (found != nullptr)
            return static_cast<uint32_t>(index * kBlockSize +
                                         static_cast<size_t>(static_cast<const char*>(found) - text));
    }
    return kNone;
}

}  // namespace koli::serve
