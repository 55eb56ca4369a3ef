#include "platform/host/postgresql/libraries.h"

#include <algorithm>

#include "platform/host/postgresql/bytes.h"
#include "platform/host/postgresql/connection.h"

namespace koli::host {
namespace {

constexpr size_t kNameMax = 63;  // bytes; the server cuts longer ones, and two could become one

constexpr const char kNames[] =
    "SELECT n.nspname FROM pg_namespace n JOIN pg_class c ON c.relnamespace = n.oid"
    " WHERE c.relname = 'koli_schema' AND c.relkind = 'r' AND has_schema_privilege(n.oid, 'USAGE')"
    " ORDER BY n.nspname";

// A view's comment tells what it was made of: the server would give its text in other words.
constexpr const char kUnions[] = R"(WITH found AS (
    SELECT t.oid, t.relname, n.nspname
    FROM pg_namespace n
    JOIN pg_class c ON c.relnamespace = n.oid AND c.relname = 'koli_schema' AND c.relkind = 'r'
    JOIN pg_class t ON t.relnamespace = n.oid AND t.relkind = 'r' AND t.relname IN
        ('music', 'video', 'photo', 'playlist', 'directory', 'problem', 'photo_info', 'video_desc',
         'video_comment', 'photo_share', 'photo_access_right')
    WHERE has_schema_privilege(n.oid, 'USAGE') AND has_table_privilege(t.oid, 'SELECT')
), common AS (
    SELECT f.relname, a.attname, min(a.attnum) AS place
    FROM found f JOIN pg_attribute a ON a.attrelid = f.oid AND a.attnum > 0 AND NOT a.attisdropped
    GROUP BY f.relname, a.attname, a.atttypid
    HAVING count(*) = (SELECT count(*) FROM found o WHERE o.relname = f.relname)
), listed AS (
    SELECT relname, string_agg(quote_ident(attname), ', ' ORDER BY place) AS columns
    FROM common GROUP BY relname
), texts AS (
    SELECT relname, string_agg(format('SELECT %L::text COLLATE "C" AS library, %s FROM %I.%I',
                                      nspname, columns, nspname, relname),
                               ' UNION ALL ' ORDER BY nspname) AS text
    FROM found JOIN listed USING (relname) GROUP BY relname
)
SELECT relname, text, encode(sha256(convert_to(text, 'UTF8')), 'hex'),
       obj_description(to_regclass('libraries.' || relname), 'pg_class')
FROM texts ORDER BY relname)";

/// A view that there is can be given more columns, but none can be taken from it.
bool MakeView(Postgresql& sql, const LibraryUnion& each) {
    const std::string view = std::string(kViewSchema) + "." + each.table;
    const std::string make = " VIEW " + view + " AS " + each.text;
    const bool is_made = sql.Execute("CREATE OR REPLACE" + make) >= 0 ||
                         (sql.Execute("DROP VIEW " + view) >= 0 && sql.Execute("CREATE" + make) >= 0);
    return is_made && sql.Execute("COMMENT ON VIEW " + view + " IS '" + each.sum + "'") >= 0;
}

bool MakeViews(Postgresql& sql, const std::vector<LibraryUnion>& due) {
    // Daemons that start together would be in each other's way.
    sql.Answer("SELECT pg_advisory_xact_lock(hashtext('koliindexd libraries'))");
    return std::ranges::all_of(due, [&sql](const LibraryUnion& each) { return MakeView(sql, each); });
}

}  // namespace

bool HasControlCharacters(const std::string& text) {
    return std::ranges::any_of(text, [](unsigned char c) { return c < ' ' || c == 0x7F; });
}

std::string LibraryNameRefusal(const std::string& name) {
    std::string scratch;
    if (name.empty()) return "a library needs a name";
    if (ServerText(name, &scratch).size() > kNameMax)
        return "the name of a library has " + std::to_string(kNameMax) + " bytes at most";
    if (HasControlCharacters(name)) return "the name of a library has no control characters";
    const bool is_reserved = name.starts_with("pg_") || name == kEveryLibrary || name == kViewSchema ||
                             name == "public" || name == "information_schema";
    return is_reserved ? "no library can be called " + name : "";
}

std::string QuotedName(const std::string& name) {
    std::string quoted = "\"";
    for (const char c : name)
        quoted.append(c == '"' ? 2 : 1, c);
    return quoted + '"';
}

std::vector<std::string> LibraryNames(Postgresql& sql) {
    std::vector<std::string> names;
    const auto rows = sql.Prepare(kNames);
    while (rows->Next())
        names.emplace_back(rows->Field(0));
    return names;
}

std::vector<LibraryUnion> LibraryUnions(Postgresql& sql) {
    std::vector<LibraryUnion> unions;
    const auto rows = sql.Prepare(kUnions);
    while (rows->Next())
        unions.push_back({std::string(rows->Field(0)), std::string(rows->Field(1)),
                          std::string(rows->Field(2)), rows->Field(2) == rows->Field(3)});
    return unions;
}

std::vector<LibraryUnion> ViewsDue(Postgresql& sql) {
    std::vector<LibraryUnion> unions = LibraryUnions(sql);
    std::erase_if(unions, [](const LibraryUnion& each) { return each.is_viewed; });
    return unions;
}

bool HasViewSchema(Postgresql& sql) {
    return sql.Answer("SELECT to_regnamespace(?1) IS NOT NULL", {kViewSchema}) == "t";
}

bool ViewsRefresh(Postgresql& sql) {
    if (!HasViewSchema(sql)) return sql.failure().reason.empty();
    const std::vector<LibraryUnion> due = ViewsDue(sql);
    if (due.empty()) return true;
    if (!sql.Begin()) return false;
    const bool is_made = MakeViews(sql, due);
    return sql.Execute(is_made ? "COMMIT" : "ROLLBACK") >= 0 && is_made;
}

}  // namespace koli::host
