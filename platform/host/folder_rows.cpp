#include "platform/host/folder_rows.h"

#include <optional>

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

/// `text` with every `escape` left out that stands before another byte; none when one stands alone, or before
/// a byte other than itself where `is_doubled`.
std::optional<std::string> Without(char escape, bool is_doubled, std::string_view text) {
    std::string plain;
    for (size_t at; (at = text.find(escape)) != std::string_view::npos; text.remove_prefix(at + 2)) {
        if (at + 1 == text.size() || (is_doubled && text[at + 1] != escape)) return std::nullopt;
        plain.append(text.substr(0, at)) += text[at + 1];
    }
    return plain.append(text);
}

/// Whether a pattern has a wildcard in it.
bool HasWildcard(std::string_view pattern) {
    for (size_t at = 0; (at = pattern.find_first_of("\\%_", at)) != std::string_view::npos; at += 2)
        if (pattern[at] != '\\') return true;
    return false;
}

/// The bytes that an escaped text stands for; none when it is no plain text, but a pattern.
std::optional<std::string> Unescaped(std::string_view escaped) {
    const std::optional<std::string> pattern = Without('\'', true, escaped);
    return pattern && !HasWildcard(*pattern) ? Without('\\', false, *pattern) : std::nullopt;
}

std::string Literal(std::string text) {
    for (size_t at = 0; (at = text.find('\'', at)) != std::string::npos; at += 2)
        text.insert(at, 1, '\'');
    return "'" + text + "'";
}

void Replace(std::string* text, std::string_view name, std::string_view value) {
    for (size_t at = 0; (at = text->find(name, at)) != std::string::npos; at += value.size())
        text->replace(at, name.size(), value);
}

// Each row of `gap` is a stretch of rows without a sub-folder: from `lo` up to `sub`, the first path behind
// it that lies in one (null behind the last).  '0' follows '/': "FOLDER/SUB0" is behind everything below
// "FOLDER/SUB/".  Bytes are counted, not characters: `rest` is where what follows "FOLDER/" begins.
constexpr const char kQuery[] =
    "WITH RECURSIVE folder(lo, hi, rest) AS (VALUES (@LO, @HI, @REST)),"
    " gap(lo, hi, rest, sub) AS (SELECT lo, hi, rest, (@FIRST(lo)) FROM folder UNION ALL"
    " SELECT @BEHIND, hi, rest, (@FIRST(@BEHIND)) FROM gap WHERE sub IS NOT NULL)"
    " SELECT path FROM gap CROSS JOIN @TABLE WHERE path >= lo AND path < coalesce(sub, hi) ORDER BY path";
constexpr const char kFirst[] =
    "SELECT path FROM @TABLE WHERE path >= @FROM AND path < hi"
    " AND instr(substr(CAST(path AS BLOB), rest), x'2F') > 0 ORDER BY path LIMIT 1";
constexpr const char kBehind[] =
    "CAST(substr(CAST(sub AS BLOB), 1, rest + instr(substr(CAST(sub AS BLOB), rest), x'2F') - 2) AS TEXT)"
    " || '0'";

std::string FirstFrom(const char* place) {
    std::string first = kFirst;
    Replace(&first, "@FROM", place);
    return first;
}

}  // namespace

std::string FolderRowsSql(const char* table, std::string_view where) {
    const std::optional<std::string_view> escaped = EscapedFolder(where);
    if (!escaped) return "";
    const std::optional<std::string> folder = Unescaped(*escaped);
    if (!folder) return "";
    std::string sql = kQuery;
    Replace(&sql, "@FIRST(lo)", FirstFrom("lo"));
    Replace(&sql, "@FIRST(@BEHIND)", FirstFrom("@BEHIND"));
    Replace(&sql, "@BEHIND", kBehind);
    Replace(&sql, "@TABLE", table);
    Replace(&sql, "@REST", std::to_string(folder->size() + 2));
    // The folder's name may hold anything, so it comes last; the first @LO is the right one then, too.
    Replace(&sql, "@HI", Literal(*folder + '0'));
    return sql.replace(sql.find("@LO"), 3, Literal(*folder + '/'));
}

}  // namespace koli::host
