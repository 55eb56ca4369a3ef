#include "tools/ctl/charset_guess.h"

#include <algorithm>
#include <cstddef>

namespace koli::ctl {
namespace {

// Korean syllables are a part of what is frequent in Chinese, and that nearly is what is in Japanese.
constexpr CharsetCandidate kCandidates[] = {
    {"windows-1252"},
    {"CP1251"},
    {"KOI8-R"},
    {"CP1250"},
    {"CP1253"},
    {"CP1254"},
    {"EUC-KR", 0xB0, 0xC8, 0xA1},
    {"GB18030", 0xB0, 0xD7, 0xA1},
    {"BIG5", 0xA4, 0xC6, 0x40},
    {"SHIFT_JIS", 0x88, 0x97, 0x40, 0x82, 0x83},
    {"EUC-JP", 0xB0, 0xCF, 0xA1, 0xA4, 0xA5},
};

constexpr double kMisread = -1;
constexpr double kFrequent = 2;    // a character of two bytes
constexpr double kKana = 3;        // of Japanese alone, where the other charsets have what is frequent, too
constexpr double kCapitals = 0.8;  // a capital after another one: a title may be written so, or be misread
constexpr double kAccentsMeet = -0.5;  // seldom in the languages of Latin letters, always in a misread text

unsigned Byte(std::string_view text, size_t at) {
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
}

/// Takes the first character off valid UTF-8.
unsigned TakeCharacter(std::string_view* utf8) {
    const unsigned lead = Byte(*utf8, 0);
    const size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    unsigned code = length == 1 ? lead : lead & (0x7FU >> length);
    for (size_t i = 1; i < length; ++i)
        code = code << 6 | (Byte(*utf8, i) & 0x3F);
    utf8->remove_prefix(std::min(length, utf8->size()));
    return code;
}

enum class Script { kNone, kLatin, kCyrillic, kGreek, kOdd };

bool IsIn(unsigned code, unsigned first, unsigned last) {
    return code >= first && code <= last;
}

Script ScriptOf(unsigned code) {
    if (code < 0x80) return IsIn(code | 0x20, 'a', 'z') ? Script::kLatin : Script::kNone;
    // Icelandic letters are misread Turkish far more often; two Greek ones are as rare.
    for (const unsigned rare : {0xD0U, 0xDDU, 0xDEU, 0xF0U, 0xFDU, 0xFEU, 0xD7U, 0xF7U, 0x390U, 0x3B0U})
        if (code == rare) return Script::kOdd;
    if (IsIn(code, 0xC0, 0x24F)) return Script::kLatin;
    if (IsIn(code, 0x400, 0x52F)) return Script::kCyrillic;
    if (IsIn(code, 0x386, 0x3CE)) return Script::kGreek;
    const bool is_punctuation =
        IsIn(code, 0x2010, 0x2026) || code == 0xA0 || code == 0xAB || code == 0xBB || code == 0x2116;
    return is_punctuation ? Script::kNone : Script::kOdd;
}

/// Of a letter.
bool IsCapital(unsigned code) {
    if (code < 0x80) return code < 'a';
    if (code < 0x100) return code < 0xDF;
    if (code < 0x250) return code == 0x178 || (IsIn(code, 0x139, 0x148) || code > 0x178) == (code % 2 == 1);
    return code < 0x3AC || IsIn(code, 0x400, 0x42F);
}

/// Of a letter or a sign beyond ASCII, behind `before`.
double ValueOf(unsigned code, unsigned before) {
    const Script script = ScriptOf(code), script_before = ScriptOf(before);
    if (script == Script::kOdd) return kMisread;
    if (script == Script::kNone) return 0;
    if (script_before == Script::kNone) return 1;
    if (script != script_before) return kMisread;
    if (script == Script::kLatin && before >= 0x80) return kAccentsMeet;
    if (!IsCapital(code)) return 1;
    return IsCapital(before) ? kCapitals : kMisread;
}

double OfLetters(std::string_view utf8) {
    double value = 0;
    for (unsigned before = ' '; !utf8.empty();) {
        const unsigned code = TakeCharacter(&utf8);
        if (code >= 0x80)
            value += ValueOf(code, before);
        else if (ScriptOf(code) == Script::kLatin && before >= 0x80 && ScriptOf(before) > Script::kLatin)
            value += kMisread;
        before = code;
    }
    return value;
}

double OfPairs(const CharsetCandidate& candidate, std::string_view text) {
    double value = 0;
    for (size_t at = 0; at < text.size(); ++at) {
        const unsigned lead = Byte(text, at), trail = Byte(text, at + 1);
        if (lead < 0x80) continue;
        const bool is_half_width = candidate.first == 0x88 && IsIn(lead, 0xA1, 0xDF);  // in Japanese
        const bool is_frequent = IsIn(lead, candidate.first, candidate.last) && trail >= candidate.trail;
        const bool is_punctuation = lead == 0xA1 || lead == 0xA3 || lead == 0x81;
        if (IsIn(lead, candidate.kana_first, candidate.kana_last))
            value += kKana;
        else if (is_frequent)
            value += kFrequent;
        else if (!is_punctuation || is_half_width)
            value += kMisread;
        if (!is_half_width) ++at;
    }
    return value;
}

}  // namespace

std::span<const CharsetCandidate> CharsetCandidates() {
    return kCandidates;
}

double CharsetLikelihood(const CharsetCandidate& candidate, std::string_view text, std::string_view utf8) {
    return candidate.first == 0 ? OfLetters(utf8) : OfPairs(candidate, text);
}

}  // namespace koli::ctl
