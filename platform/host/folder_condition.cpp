#include "platform/host/folder_condition.h"

namespace koli::host {
namespace {

constexpr std::string_view kBefore = "path like '";
constexpr std::string_view kBetween = "/%' and path not like '";
constexpr std::string_view kAfter = "/%/%'";

/// What stands for FOLDER, still escaped, in a condition of that form.
std::optional<std::string_view> EscapedFolder(std::string_view where) {
    constexpr size_t kFixed = kBefore.size() + kBetween.size() + kAfter.size();
    if (where.size() < kFixed || (where.size() - kFixed) % 2 != 0) return std::nullopt;
    const size_t length = (where.size() - kFixed) / 2;
    const std::string_view folder = where.substr(kBefore.size(), length);
    const std::string_view rest = where.substr(kBefore.size() + length);
    const bool is_form = where.starts_with(kBefore) && rest.starts_with(kBetween) &&
                         rest.substr(kBetween.size(), length) == folder && rest.ends_with(kAfter);
    return is_form ? std::optional(folder) : std::nullopt;
}

/// The bytes that a text escaped for LIKE and for the quotes stands for; none when it is no plain text, but a
/// pattern, or is not escaped rightly.
std::optional<std::string> Unescaped(std::string_view escaped) {
    std::string plain;
    bool is_literal = false;  // behind a backslash
    for (size_t at = 0; at < escaped.size(); ++at) {
        const char c = escaped[at];
        if (c == '\'' && (++at == escaped.size() || escaped[at] != c)) return std::nullopt;
        if (!is_literal && (c == '%' || c == '_')) return std::nullopt;
        is_literal = c == '\\' && !is_literal;
        if (!is_literal) plain += c;
    }
    return is_literal ? std::nullopt : std::optional(plain);
}

}  // namespace

std::optional<std::string> FolderOfCondition(std::string_view where) {
    const std::optional<std::string_view> escaped = EscapedFolder(where);
    return escaped ? Unescaped(*escaped) : std::nullopt;
}

}  // namespace koli::host
