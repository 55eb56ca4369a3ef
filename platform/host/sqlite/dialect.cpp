#include "platform/host/sqlite/dialect.h"

#include <strings.h>

#include <algorithm>
#include <iterator>

namespace koli::host {
namespace {

constexpr std::string_view kBlanks = " \t\r\n\v\f";
constexpr std::string_view kBooleanColumns[] = {"public", "enabled", "is_subdir"};

enum class Token { kEnd, kBlank, kWord, kLiteral, kOther };

bool IsWordByte(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '$' || (c & 0x80) != 0;
}

bool Equals(std::string_view text, std::string_view word) {
    return text.size() == word.size() && strncasecmp(text.data(), word.data(), word.size()) == 0;
}

template <size_t N>
bool IsOneOf(std::string_view text, const std::string_view (&words)[N]) {
    return std::any_of(std::begin(words), std::end(words), [text](auto word) { return Equals(text, word); });
}

/// The length of a text that begins with the quote `text[0]`; a doubled quote belongs to it.
size_t QuotedLength(std::string_view text) {
    size_t at = 1;
    while (at < text.size()) {
        if (text[at++] != text[0]) continue;
        if (at == text.size() || text[at] != text[0]) return at;
        ++at;
    }
    return at;
}

/// The length of what runs up to and including `end`, or of everything.
size_t LengthUpTo(std::string_view text, std::string_view end) {
    const size_t at = text.find(end, 2);
    return at == std::string_view::npos ? text.size() : at + end.size();
}

/// Cuts the next token off `*rest`.
Token NextToken(std::string_view* rest, std::string_view* token) {
    const std::string_view text = *rest;
    if (text.empty()) return Token::kEnd;
    Token kind = Token::kOther;
    size_t length = 1;
    if (text[0] == '\'' || text[0] == '"') {
        kind = text[0] == '\'' ? Token::kLiteral : Token::kOther;
        length = QuotedLength(text);
    } else if (text.substr(0, 2) == "--" || text.substr(0, 2) == "/*") {
        kind = Token::kBlank;
        length = LengthUpTo(text, text[0] == '-' ? "\n" : "*/");
    } else if (kBlanks.find(text[0]) != std::string_view::npos) {
        kind = Token::kBlank;
        length = std::min(text.find_first_not_of(kBlanks), text.size());
    } else if (IsWordByte(text[0])) {
        kind = Token::kWord;
        while (length < text.size() && IsWordByte(text[length]))
            ++length;
    }
    *token = text.substr(0, length);
    rest->remove_prefix(length);
    return kind;
}

bool IsFollowedByEscape(std::string_view rest) {
    std::string_view token;
    Token kind = Token::kBlank;
    while (kind == Token::kBlank)
        kind = NextToken(&rest, &token);
    return kind == Token::kWord && Equals(token, "escape");
}

/// "'t'" or "'f'" for a truth value, else the token itself.
std::string_view BooleanLiteral(Token kind, std::string_view token) {
    const std::string_view value = kind == Token::kLiteral ? token.substr(1, token.size() - 2) : token;
    if (kind == Token::kWord && !Equals(value, "true") && !Equals(value, "false")) return token;
    if (IsOneOf(value, kTrueForms)) return "'t'";
    if (IsOneOf(value, kFalseForms)) return "'f'";
    return token;
}

/// What the tokens read so far lead to.
enum class Expecting { kNothing, kPattern, kCollation, kBooleanOperator, kBooleanValue };

Expecting AfterWord(std::string_view word, Expecting before) {
    if (Equals(word, "like")) return Expecting::kPattern;
    if (Equals(word, "collate")) return Expecting::kCollation;
    if (IsOneOf(word, kBooleanColumns)) return Expecting::kBooleanOperator;
    const bool in_comparison = before == Expecting::kBooleanOperator || before == Expecting::kBooleanValue;
    return in_comparison && (Equals(word, "is") || Equals(word, "not")) ? Expecting::kBooleanValue
                                                                        : Expecting::kNothing;
}

Expecting AfterOther(char c, Expecting before) {
    const bool in_comparison = before == Expecting::kBooleanOperator || before == Expecting::kBooleanValue;
    return in_comparison && (c == '=' || c == '<' || c == '>' || c == '!') ? Expecting::kBooleanValue
                                                                           : Expecting::kNothing;
}

}  // namespace

std::string ToSqliteText(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 64);
    Expecting expecting = Expecting::kNothing;
    std::string_view token;
    for (Token kind; (kind = NextToken(&text, &token)) != Token::kEnd;) {
        if (kind == Token::kWord && Equals(token, "strpos")) token = "instr";
        if (expecting == Expecting::kCollation && token == R"("C")") token = "BINARY";
        const bool is_value = kind == Token::kLiteral || kind == Token::kWord;
        out += is_value && expecting == Expecting::kBooleanValue ? BooleanLiteral(kind, token) : token;
        if (kind == Token::kLiteral && expecting == Expecting::kPattern && !IsFollowedByEscape(text))
            out += " ESCAPE '\\'";
        if (kind == Token::kBlank) continue;
        if (kind == Token::kWord)
            expecting = AfterWord(token, expecting);
        else if (kind == Token::kOther)
            expecting = AfterOther(token[0], expecting);
        else
            expecting = Expecting::kNothing;
    }
    return out;
}

}  // namespace koli::host
