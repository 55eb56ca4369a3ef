#include "tools/serve/page/address.h"

namespace koli::serve {
namespace {

bool IsPlain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

void AppendEncoded(std::string_view text, std::string* to) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    for (const char c : text) {
        if (IsPlain(c)) {
            *to += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        *to += '%';
        *to += kDigits[byte >> 4];
        *to += kDigits[byte & 15];
    }
}

}  // namespace

// No server takes an empty segment, "." and "..", or one with a '/' in it, however it is encoded.
Address& Address::Word(std::string_view word) {
    std::string escaped = word.empty() || word == "." || word == ".." || word == kNoWord ? "~e" : "";
    for (const char c : word) {
        if (c == '~')
            escaped += "~~";
        else if (c == '/')
            escaped += "~s";
        else if (c == '\0')
            escaped += "~0";
        else
            escaped += c;
    }
    text_ += '/';
    AppendEncoded(escaped, &text_);
    return *this;
}

Address& Address::Path(std::string_view path) {
    while (!path.empty()) {
        const size_t end = path.find('/');
        if (end != 0) {
            text_ += '/';
            AppendEncoded(path.substr(0, end), &text_);
        }
        path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
    }
    return *this;
}

Address& Address::Number(int64_t number) {
    text_.append("/").append(std::to_string(number));
    return *this;
}

Address& Address::Query(Literal name, std::string_view value) {
    text_.append(has_query_ ? "&" : "?").append(name.text).append("=");
    AppendEncoded(value, &text_);
    has_query_ = true;
    return *this;
}

std::optional<std::string> Unescaped(std::string_view segment) {
    std::string word;
    if (segment == kNoWord) return std::nullopt;
    if (segment.starts_with("~e")) segment.remove_prefix(2);
    for (size_t i = 0; i < segment.size(); ++i) {
        if (segment[i] != '~') {
            word += segment[i];
            continue;
        }
        const char kind = ++i < segment.size() ? segment[i] : ' ';
        if (kind != '~' && kind != 's' && kind != '0') return std::nullopt;
        word += kind == 's' ? '/' : kind == '0' ? '\0' : '~';
    }
    return word;
}

std::string PathOf(const std::vector<std::string>& segments, size_t first) {
    std::string path;
    for (size_t i = first; i < segments.size(); ++i)
        path.append("/").append(segments[i]);
    return path;
}

}  // namespace koli::serve
