#include "platform/host/folder_rows.h"

#include <functional>
#include <map>

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

void Replace(std::string* text, std::string_view name, std::string_view value) {
    for (size_t at = 0; (at = text->find(name, at)) != std::string::npos; at += value.size())
        text->replace(at, name.size(), value);
}

// Each row of `gap` is a stretch of rows without a sub-folder: from `lo` up to `sub`, the first path behind
// it that lies in one (null behind the last).  '0' follows '/': "FOLDER/SUB0" is behind everything below
// "FOLDER/SUB/".  ?1 is "FOLDER/", ?2 is "FOLDER0", ?3 where what follows "FOLDER/" begins: bytes are
// counted, not characters.
constexpr const char kQuery[] =
    "WITH RECURSIVE gap(lo, sub) AS (SELECT ?1, (@FIRST(?1)) UNION ALL"
    " SELECT @BEHIND, (@FIRST(@BEHIND)) FROM gap WHERE sub IS NOT NULL)"
    " SELECT path FROM gap CROSS JOIN @TABLE WHERE path >= lo AND path < coalesce(sub, ?2) ORDER BY path";
constexpr const char kFirst[] =
    "SELECT path FROM @TABLE WHERE path >= @FROM AND path < ?2"
    " AND instr(substr(CAST(path AS BLOB), ?3), x'2F') > 0 ORDER BY path LIMIT 1";
constexpr const char kBehind[] =
    "CAST(substr(CAST(sub AS BLOB), 1, ?3 + instr(substr(CAST(sub AS BLOB), ?3), x'2F') - 2) AS TEXT)"
    " || '0'";

std::string FirstFrom(const char* place) {
    std::string first = kFirst;
    Replace(&first, "@FROM", place);
    return first;
}

std::string QueryOf(const char* table) {
    std::string sql = kQuery;
    Replace(&sql, "@FIRST(?1)", FirstFrom("?1"));
    Replace(&sql, "@FIRST(@BEHIND)", FirstFrom("@BEHIND"));
    Replace(&sql, "@BEHIND", kBehind);
    Replace(&sql, "@TABLE", table);
    return sql;
}

}  // namespace

std::optional<std::string> FolderOfCondition(std::string_view where) {
    const std::optional<std::string_view> escaped = EscapedFolder(where);
    return escaped ? Unescaped(*escaped) : std::nullopt;
}

const char* FolderRowsSql(const char* table) {
    static auto* const texts = new std::map<std::string, std::string, std::less<>>;
    const auto known = texts->find(table);
    return (known != texts->end() ? known : texts->emplace(table, QueryOf(table)).first)->second.c_str();
}

void BindFolderRows(SqlStatement& statement, const std::string& folder) {
    statement.Text(1, folder + '/');
    statement.Text(2, folder + '0');
    statement.Integer(3, static_cast<int64_t>(folder.size()) + 2);
}

}  // namespace koli::host
