#include "platform/host/sqlite/folder_rows.h"

#include <string_view>

namespace koli::host {
namespace {

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

}  // namespace

std::string FolderRowsText(const char* table) {
    std::string sql = kQuery;
    Replace(&sql, "@FIRST(?1)", FirstFrom("?1"));
    Replace(&sql, "@FIRST(@BEHIND)", FirstFrom("@BEHIND"));
    Replace(&sql, "@BEHIND", kBehind);
    Replace(&sql, "@TABLE", table);
    return sql;
}

}  // namespace koli::host
