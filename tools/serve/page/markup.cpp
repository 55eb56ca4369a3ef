#include "tools/serve/page/markup.h"

#include "base/text/utf8.h"

namespace koli::serve {
namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD

/// Marks that embed, override and isolate: one that is left open would reach out of its text, and one that is
/// closed too often would end what holds the text in.
bool TurnsDirection(std::string_view sequence) {
    if (sequence.size() != 3 || sequence[0] != '\xE2') return false;
    const auto last = static_cast<unsigned char>(sequence[2]);
    return (sequence[1] == '\x80' && last >= 0xAA && last <= 0xAE) ||  // U+202A to U+202E
           (sequence[1] == '\x81' && last >= 0xA6 && last <= 0xA9);    // U+2066 to U+2069
}

void AppendByte(char c, std::string* to) {
    switch (c) {
        case '&':
            *to += "&amp;";
            return;
        case '<':
            *to += "&lt;";
            return;
        case '>':
            *to += "&gt;";
            return;
        case '"':
            *to += "&quot;";
            return;
        case '\'':
            *to += "&#39;";
            return;
        case '\x7F':
            *to += "\xE2\x90\xA1";  // U+2421
            return;
        default:
            break;
    }
    if (static_cast<unsigned char>(c) >= 0x20 || c == '\n' || c == '\t')
        *to += c;
    else
        to->append("\xE2\x90").append(1, static_cast<char>(0x80 + c));  // U+2400 and on
}

void AppendEscaped(std::string_view text, std::string* to) {
    while (!text.empty()) {
        const size_t length = Utf8Length(text);
        const std::string_view sequence = text.substr(0, length);
        const bool is_c1 =
            length == 2 && sequence[0] == '\xC2' && static_cast<unsigned char>(sequence[1]) < 0xA0;
        if (length == 1)
            AppendByte(text[0], to);
        else if (length == 0 || is_c1 || TurnsDirection(sequence))
            *to += kReplacement;
        else
            *to += sequence;
        text.remove_prefix(length == 0 ? 1 : length);
    }
}

}  // namespace

Markup& Markup::Text(std::string_view text) {
    AppendEscaped(text, &text_);
    return *this;
}

Markup& Markup::Name(std::string_view name) {
    text_ += "<bdi>";
    AppendEscaped(name, &text_);
    text_ += "</bdi>";
    return *this;
}

Markup& Markup::Attribute(Literal name, std::string_view value) {
    text_.append(" ").append(name.text).append("=\"");
    AppendEscaped(value, &text_);
    text_ += '"';
    return *this;
}

Markup& Markup::Attribute(Literal name, int64_t value) {
    return Attribute(name, std::to_string(value));
}

Markup& Markup::Link(Literal name, const Address& address) {
    return Attribute(name, writer_ != nullptr && *writer_ ? (*writer_)(address) : address.text());
}

}  // namespace koli::serve
