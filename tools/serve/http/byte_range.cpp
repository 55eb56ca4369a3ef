#include "tools/serve/http/byte_range.h"

#include <strings.h>

#include <algorithm>
#include <optional>

namespace koli::serve {
namespace {

constexpr std::string_view kUnit = "bytes=";

std::string_view WithoutBlanks(std::string_view text) {
    while (text.starts_with(' ') || text.starts_with('\t'))
        text.remove_prefix(1);
    while (text.ends_with(' ') || text.ends_with('\t'))
        text.remove_suffix(1);
    return text;
}

/// A number of digits alone; one that is too big is the biggest.
std::optional<int64_t> Position(std::string_view digits) {
    if (digits.empty()) return std::nullopt;
    int64_t number = 0;
    for (const char c : digits) {
        if (c < '0' || c > '9') return std::nullopt;
        if (number > (INT64_MAX - 9) / 10)
            number = INT64_MAX;
        else if (number != INT64_MAX)
            number = number * 10 + (c - '0');
    }
    return number;
}

}  // namespace

ByteRange RangeOf(std::string_view header, int64_t size) {
    if (header.size() < kUnit.size() || strncasecmp(header.data(), kUnit.data(), kUnit.size()) != 0)
        return {};
    const std::string_view range = WithoutBlanks(header.substr(kUnit.size()));
    const size_t dash = range.find('-');
    if (dash == std::string_view::npos) return {};
    const std::string_view before = range.substr(0, dash), after = range.substr(dash + 1);
    const std::optional<int64_t> first = Position(before), last = Position(after);
    if ((!first && !before.empty()) || (!last && !after.empty())) return {};  // several of them, too
    if (!first) {
        if (!last) return {};
        const int64_t length = std::min(*last, size);
        return {length > 0 ? ByteRange::kPart : ByteRange::kNone, size - length, length};
    }
    if (last && *last < *first) return {};
    if (*first >= size) return {ByteRange::kNone};
    const int64_t end = last ? std::min(*last, size - 1) : size - 1;
    return {ByteRange::kPart, *first, end - *first + 1};
}

}  // namespace koli::serve
