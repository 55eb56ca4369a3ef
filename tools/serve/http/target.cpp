#include "tools/serve/http/target.h"

#include <climits>

namespace koli::serve {
namespace {

/// 0 to 15, or -1.
int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

std::optional<std::string> PercentDecoded(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        char byte = text[i];
        if (byte == '%') {
            const int high = i + 1 < text.size() ? HexDigit(text[i + 1]) : -1;
            const int low = i + 2 < text.size() ? HexDigit(text[i + 2]) : -1;
            if (high < 0 || low < 0) return std::nullopt;
            byte = static_cast<char>(high * 16 + low);
            i += 2;
        }
        if (byte == '\0') return std::nullopt;
        decoded += byte;
    }
    return decoded;
}

std::optional<std::vector<std::string>> SegmentsOf(std::string_view path) {
    if (!path.starts_with('/')) return std::nullopt;
    path.remove_prefix(1);
    std::vector<std::string> segments;
    size_t length = 0;
    while (!path.empty() || !segments.empty()) {
        const size_t end = path.find('/');
        std::optional<std::string> segment = PercentDecoded(path.substr(0, end));
        if (!segment || segment->empty() || *segment == "." || *segment == ".." ||
            segment->find('/') != std::string::npos)
            return std::nullopt;
        length += segment->size() + 1;
        if (length >= PATH_MAX) return std::nullopt;
        segments.push_back(std::move(*segment));
        if (end == std::string_view::npos) break;
        path.remove_prefix(end + 1);
    }
    return segments;
}

}  // namespace koli::serve
