#include "base/text/fold.h"

#include <utf8proc.h>

#include <cstdint>
#include <cstring>

namespace koli {
namespace {

// Marks are put in order at a cost that grows with the square of their number: so a text is folded in pieces.
// Names of files and stored texts are no longer than one.
constexpr size_t kPieceMax = 256;    // bytes
constexpr size_t kCharacterMax = 4;  // bytes
constexpr size_t kGrowthMax = 18;    // characters that one character can become

constexpr auto kOptions = static_cast<utf8proc_option_t>(
    UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_COMPAT | UTF8PROC_CASEFOLD | UTF8PROC_IGNORE);

constexpr auto kWithoutMarks = static_cast<utf8proc_option_t>(kOptions | UTF8PROC_STRIPMARK);

bool IsAscii(char c) {
    return (c & 0x80) == 0;
}

size_t AsciiLength(std::string_view text) {
    size_t at = 0;
    for (uint64_t eight = 0; at + sizeof eight <= text.size(); at += sizeof eight) {
        memcpy(&eight, text.data() + at, sizeof eight);
        if ((eight & 0x8080808080808080U) != 0) break;
    }
    while (at < text.size() && IsAscii(text[at]))
        ++at;
    return at;
}

void AppendAscii(std::string_view text, std::string* folded) {
    const size_t before = folded->size();
    folded->resize(before + text.size());
    char* const to = folded->data() + before;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool is_upper = text[i] >= 'A' && text[i] <= 'Z';
        to[i] = static_cast<char>(text[i] | (is_upper ? 0x20 : 0));
    }
}

/// How much of the text's beginning is folded as one piece: up to two ASCII characters or what is no UTF-8.
size_t PieceLength(std::string_view text) {
    size_t at = 0;
    while (at + kCharacterMax <= kPieceMax && at < text.size()) {
        if (at > 0 && IsAscii(text[at]) && (at + 1 == text.size() || IsAscii(text[at + 1]))) break;
        utf8proc_int32_t character = 0;
        const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()) + at,
                                             static_cast<utf8proc_ssize_t>(text.size() - at), &character);
        if (length <= 0) break;
        at += static_cast<size_t>(length);
    }
    return at;
}

void AppendPiece(std::string_view piece, utf8proc_option_t options, std::string* folded) {
    utf8proc_int32_t characters[kPieceMax * kGrowthMax + 1];  // and a NUL
    const auto count = utf8proc_decompose(reinterpret_cast<const utf8proc_uint8_t*>(piece.data()),
                                          static_cast<utf8proc_ssize_t>(piece.size()), characters,
                                          kPieceMax * kGrowthMax, options);
    const auto length = count >= 0 ? utf8proc_reencode(characters, count, options) : -1;
    if (length >= 0)
        folded->append(reinterpret_cast<const char*>(characters), static_cast<size_t>(length));
    else
        folded->append(piece);
}

void AppendFolded(std::string_view text, utf8proc_option_t options, std::string* folded) {
    while (!text.empty()) {
        size_t length = AsciiLength(text);
        if (length > 0 && length < text.size()) --length;  // a mark may follow that belongs to the last one
        AppendAscii(text.substr(0, length), folded);
        text.remove_prefix(length);
        if (text.empty()) break;
        length = PieceLength(text);
        if (length > 0)
            AppendPiece(text.substr(0, length), options, folded);
        else
            folded->push_back(text[0]);
        text.remove_prefix(length > 0 ? length : 1);
    }
}

}  // namespace

void FoldTo(std::string_view text, std::string* folded) {
    folded->clear();
    AppendFolded(text, kOptions, folded);
}

std::string Folded(std::string_view text) {
    std::string folded;
    FoldTo(text, &folded);
    return folded;
}

std::string Capital(std::string_view character) {
    constexpr char kCapitalBit = 0x20;
    if (character.size() == 1 && IsAscii(character[0])) {
        const bool is_letter = character[0] >= 'a' && character[0] <= 'z';
        return {static_cast<char>(is_letter ? character[0] & ~kCapitalBit : character[0])};
    }
    utf8proc_int32_t code = 0;
    utf8proc_uint8_t capital[kCharacterMax];
    const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(character.data()),
                                         static_cast<utf8proc_ssize_t>(character.size()), &code);
    if (length <= 0) return std::string(character);
    const auto written = utf8proc_encode_char(utf8proc_toupper(code), capital);
    return {reinterpret_cast<const char*>(capital), static_cast<size_t>(written)};
}

void SortKeyTo(std::string_view text, std::string* key) {
    constexpr char kBeforeAllElse = '\1';
    key->clear();
    AppendFolded(text, kWithoutMarks, key);
    key->push_back(kBeforeAllElse);
    AppendFolded(text, kOptions, key);
}

}  // namespace koli
