#include "platform/host/text_utf8.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace koli::host {
namespace {

constexpr unsigned kReplacement = 0xFFFD;

// Bytes of a full field of an ID3v1 tag, and of the comment of one with a track number.
constexpr size_t kId3v1Text = 30;
constexpr size_t kId3v11Comment = 28;

// windows-1252, 0x80 to 0x9F.
constexpr uint16_t kWindows1252[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

unsigned Byte(std::string_view text, size_t index) {
    return static_cast<unsigned char>(text[index]);
}

void AppendUtf8(std::string* out, unsigned code) {
    const auto put = [out](unsigned byte) { out->push_back(static_cast<char>(byte)); };
    if (code < 0x80) {
        put(code);
        return;
    }
    if (code < 0x800) {
        put(0xC0 | code >> 6);
    } else {
        if (code < 0x10000) {
            put(0xE0 | code >> 12);
        } else {
            put(0xF0 | code >> 18);
            put(0x80 | (code >> 12 & 0x3F));
        }
        put(0x80 | (code >> 6 & 0x3F));
    }
    put(0x80 | (code & 0x3F));
}

enum class Sequence { kWhole, kCut, kWrong };

/// Judges the sequence that begins at `at`; `*length` receives its bytes.
Sequence NextSequence(std::string_view text, size_t at, size_t* length) {
    const unsigned lead = Byte(text, at);
    *length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if ((lead >= 0x80 && lead < 0xC2) || lead > 0xF4) return Sequence::kWrong;

    // The second byte of some leads has narrower bounds.
    unsigned low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    unsigned high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    for (size_t i = 1; i < *length; ++i, low = 0x80, high = 0xBF) {
        if (at + i == text.size()) return Sequence::kCut;
        const unsigned byte = Byte(text, at + i);
        if (byte < low || byte > high) return Sequence::kWrong;
    }
    return Sequence::kWhole;
}

std::string Utf8FromWindows1252(std::string_view text) {
    std::string out;
    out.reserve(text.size() * 2);
    for (size_t i = 0; i < text.size(); ++i) {
        const unsigned byte = Byte(text, i);
        AppendUtf8(&out, byte >= 0x80 && byte < 0xA0 ? kWindows1252[byte - 0x80] : byte);
    }
    return out;
}

/// How much of `text` is UTF-8: all of it, or what stands before an incomplete sequence at its very end if a
/// long one is there.  npos when it is none.
size_t ValidLength(std::string_view text) {
    bool has_long_sequence = false;
    size_t length = 0;
    for (size_t at = 0; at < text.size(); at += length) {
        const Sequence kind = NextSequence(text, at, &length);
        if (kind == Sequence::kCut && has_long_sequence) return at;
        if (kind != Sequence::kWhole) return std::string_view::npos;
        if (length > 1) has_long_sequence = true;
    }
    return text.size();
}

/// `utf8` behind U+FEFF at its begin and the blanks that follow, which the mark has kept from being trimmed.
std::string_view WithoutMark(std::string_view utf8) {
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    while (utf8.starts_with(kMark)) {
        utf8.remove_prefix(kMark.size());
        utf8.remove_prefix(std::min(utf8.find_first_not_of(' '), utf8.size()));
    }
    return utf8;
}

/// As MediaInfoValid cleans a text that bears no mark.
std::string Cleaned(std::string utf8) {
    for (char& c : utf8)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
    utf8.erase(0, utf8.find_first_not_of(' '));
    utf8.erase(0, utf8.size() - WithoutMark(utf8).size());
    utf8.erase(utf8.find_last_not_of(' ') + 1);
    return utf8;
}

}  // namespace

Utf16Text::Utf16Text(std::string_view bytes) {
    big_endian = bytes.substr(0, 2) == "\xFE\xFF";
    marked = big_endian || bytes.substr(0, 2) == "\xFF\xFE";
    if (!marked) return;
    units = bytes.substr(2, (bytes.size() - 2) / 2 * 2);
    for (size_t i = 0; i < size(); ++i)
        if ((*this)[i] == 0) {
            units = units.substr(0, 2 * i);
            fills_bytes = false;
        }
}

unsigned Utf16Text::operator[](size_t index) const {
    const unsigned first = Byte(units, 2 * index), second = Byte(units, 2 * index + 1);
    return big_endian ? first << 8 | second : second << 8 | first;
}

std::string Utf8FromUtf16(const Utf16Text& text) {
    std::string out;
    out.reserve(text.size() * 3);
    for (size_t i = 0; i < text.size(); ++i) {
        unsigned code = text[i];
        if ((code & 0xF800) == 0xD800) {
            const bool is_first = code < 0xDC00, is_last = i + 1 == text.size();
            if (is_first && is_last && text.fills_bytes) break;
            const bool paired = is_first && !is_last && (text[i + 1] & 0xFC00) == 0xDC00;
            code = paired ? 0x10000 + ((code & 0x3FF) << 10 | (text[++i] & 0x3FF)) : kReplacement;
        }
        AppendUtf8(&out, code);
    }
    return Cleaned(std::move(out));
}

std::string_view Utf8FromUnmarked(std::string_view text, std::string* scratch, size_t room) {
    const size_t valid = ValidLength(text);
    if (valid != std::string_view::npos) return WithoutMark(text.substr(0, valid));
    const TagCharset* charset = TagCharsetInForce();
    if (charset == nullptr || !Utf8FromCharset(*charset, text, room, scratch))
        *scratch = Utf8FromWindows1252(text);
    return WithoutMark(*scratch);
}

bool Utf8FromCharset(const TagCharset& charset, std::string_view text, size_t room, std::string* utf8) {
    const TagCharset::Outcome outcome = charset.Decode(text, utf8);
    if (outcome != TagCharset::Outcome::kCut) return outcome == TagCharset::Outcome::kWhole;
    return text.size() == room || text.size() == kId3v1Text || text.size() == kId3v11Comment;
}

bool IsUtf8Text(std::string_view text) {
    return ValidLength(text) != std::string_view::npos;
}

}  // namespace koli::host
