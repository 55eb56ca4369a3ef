#include "platform/host/postgresql/bytes.h"

#include <algorithm>
#include <cstdint>

namespace koli::host {
namespace {

constexpr uint8_t kEscape = 1;
constexpr uint32_t kFirst = 0xF780;  // stands for the byte 0x80
constexpr uint32_t kLast = 0xF7FF;
constexpr size_t kMarkLength = 3;  // of each of these in UTF-8

uint8_t ByteAt(std::string_view text, size_t at) {
    return static_cast<uint8_t>(text[at]);
}

bool IsTail(std::string_view text, size_t at) {
    return at < text.size() && (ByteAt(text, at) & 0xC0) == 0x80;
}

/// The length of the character at `at`, 0 when there is none; `*code` is its number.
size_t CharacterAt(std::string_view text, size_t at, uint32_t* code) {
    const uint8_t first = ByteAt(text, at);
    if (first < 0x80) {
        *code = first;
        return 1;
    }
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4) return 0;
    *code = first & (0xFFU >> (length + 1));
    for (size_t i = 1; i < length; ++i) {
        if (!IsTail(text, at + i)) return 0;
        *code = *code << 6 | (ByteAt(text, at + i) & 0x3FU);
    }
    const bool is_overlong = (length == 3 && *code < 0x800) || (length == 4 && *code < 0x10000);
    const bool is_surrogate = *code >= 0xD800 && *code <= 0xDFFF;
    return is_overlong || is_surrogate || *code > 0x10FFFF ? 0 : length;
}

/// The length of what the server may hold as it is, from `at` on.
size_t PlainLength(std::string_view text, size_t at) {
    uint32_t code = 0;
    const size_t length = CharacterAt(text, at, &code);
    return code <= kEscape || (code >= kFirst && code <= kLast) ? 0 : length;
}

void AppendMark(uint8_t byte, std::string* out) {
    if (byte <= kEscape) {
        out->append({static_cast<char>(kEscape), static_cast<char>(byte + 1)});
        return;
    }
    const uint32_t code = kFirst + (byte - 0x80U);
    out->push_back(static_cast<char>(0xE0 | code >> 12));
    out->push_back(static_cast<char>(0x80 | (code >> 6 & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (code & 0x3F)));
}

bool IsPlain(char c) {
    return static_cast<signed char>(c) > kEscape;  // ASCII
}

}  // namespace

std::string_view ServerText(std::string_view bytes, std::string* scratch) {
    size_t clean = static_cast<size_t>(std::find_if_not(bytes.begin(), bytes.end(), IsPlain) - bytes.begin());
    while (clean < bytes.size()) {
        const size_t length = PlainLength(bytes, clean);
        if (length == 0) break;
        clean += length;
    }
    if (clean == bytes.size()) return bytes;
    scratch->assign(bytes.substr(0, clean));
    for (size_t at = clean; at < bytes.size();) {
        // Of a character that stands for a byte each byte is kept by itself: none of them is ASCII.
        const size_t length = PlainLength(bytes, at);
        if (length == 0)
            AppendMark(ByteAt(bytes, at++), scratch);
        else
            scratch->append(bytes.substr(at, length));
        at += length;
    }
    return *scratch;
}

std::string_view OwnBytes(std::string_view text, std::string* scratch) {
    size_t at = text.find_first_of("\1\xEF");
    if (at == std::string_view::npos) return text;
    scratch->assign(text.substr(0, at));
    while (at < text.size()) {
        uint32_t code = 0;
        const size_t length = CharacterAt(text, at, &code);
        if (length == kMarkLength && code >= kFirst && code <= kLast) {
            scratch->push_back(static_cast<char>(code - kFirst + 0x80));
            at += length;
        } else if (code == kEscape && at + 1 < text.size()) {
            scratch->push_back(static_cast<char>(text[at + 1] - 1));
            at += 2;
        } else {
            scratch->push_back(text[at++]);
        }
    }
    return *scratch;
}

}  // namespace koli::host
