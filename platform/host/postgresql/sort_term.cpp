#include "platform/host/postgresql/sort_term.h"

#include <cstdio>
#include <string_view>

namespace koli::host {
namespace {

constexpr unsigned kFirst = 0x80, kBehind = 0x20000;  // of the characters that are marks, or could be
constexpr unsigned kFirstOther = 0xE0000, kBehindOther = 0xE1000;
constexpr char kBeforeMarks = '\1';  // in a key, between the text without marks and the one with them

// Of what is not ASCII the server's own letters are made small; what it makes small in another way than a key
// does follows.  The parts are ?=column, #=what is left out of both, @=the marks.
constexpr const char kSmall[] =
    "translate(replace(lower(normalize(regexp_replace(?, '[#]', '', 'g'), NFKD) COLLATE \"und-x-icu\"),"
    " U&'\\00DF', 'ss'), U&'\\03C2', U&'\\03C3')";
constexpr const char kTerm[] =
    "(CASE WHEN octet_length(?) = length(?) THEN convert_to(lower(? COLLATE \"C\") || chr(1) ||"
    " lower(? COLLATE \"C\"), 'UTF8') ELSE (SELECT koli_bytes(normalize(regexp_replace(small, '[@]', '', 'g'),"
    " NFC) || chr(1) || normalize(small, NFC)) FROM (SELECT $ AS small) AS folded) END)";

std::string Replaced(std::string_view text, char name, const std::string& value) {
    std::string replaced;
    for (const char c : text)
        if (c == name)
            replaced += value;
        else
            replaced += c;
    return replaced;
}

std::string Character(unsigned code) {
    const auto tail = [code](unsigned shift) { return static_cast<char>(0x80 | (code >> shift & 0x3F)); };
    if (code < 0x800) return {static_cast<char>(0xC0 | code >> 6), tail(0)};
    if (code < 0x10000) return {static_cast<char>(0xE0 | code >> 12), tail(6), tail(0)};
    return {static_cast<char>(0xF0 | code >> 18), tail(12), tail(6), tail(0)};
}

/// The ranges of a regular expression.
struct Ranges {
    static constexpr size_t kEnd = std::string_view("-\\U00000000").size();
    std::string text = {};
    unsigned behind = 0;

    void Add(unsigned code) {
        char written[32];
        const bool goes_on = code == behind && !text.empty();
        if (goes_on && text.rfind('-') == text.size() - kEnd) text.resize(text.size() - kEnd);
        snprintf(written, sizeof written, goes_on ? "-\\U%08X" : "\\U%08X", code);
        text += written;
        behind = code + 1;
    }
};

/// Characters that a key lacks without marks, and those that it always lacks.
struct LeftOut {
    Ranges marks, all;

    explicit LeftOut(Sql::TextKey key) {
        std::string made;
        for (unsigned code = kFirst; code < kBehindOther; ++code) {
            if (code == kBehind) code = kFirstOther;
            if (code >= 0xD800 && code < 0xE000) continue;  // halves of characters
            key(Character(code), &made);
            if (made.front() != kBeforeMarks) continue;
            marks.Add(code);
            if (made.size() == 1) all.Add(code);
        }
    }
};

}  // namespace

std::string SortTermOf(const std::string& column, Sql::TextKey key) {
    const LeftOut left_out(key);
    const std::string small = Replaced(Replaced(kSmall, '#', left_out.all.text), '?', column);
    return Replaced(Replaced(Replaced(kTerm, '@', left_out.marks.text), '?', column), '$', small);
}

}  // namespace koli::host
