// Result sets of both databases, and statements run on the connection that a result set came from.
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/log.h"
#include "platform/host/database_groups.h"
#include "platform/host/guard.h"
#include "platform/host/tables.h"
#include "platform/kolidb.h"

struct KOLIDB {
    koli::host::Database& database;
};

struct KOLIDBResult {
    std::unique_ptr<koli::host::SqlRows> rows;
};

namespace koli::host {
namespace {

constexpr const char kModule[] = "kolidb";

KOLIDB* MediaConnection() {
    static KOLIDB db{MediaDatabase()};
    return &db;
}

KOLIDB* PhotoConnection() {
    static KOLIDB db{PhotoDatabase()};
    return &db;
}

struct Selection {
    const char* columns;
    const char* where;  // null = all rows
    const char* order;  // null = none
    int limit;          // 0 = all
    int offset;
};

bool HasText(const char* text) {
    return text != nullptr && *text != '\0';
}

std::string SelectText(const char* table, const Selection& selection) {
    std::string text = std::string("SELECT ") + selection.columns + " FROM " + table;
    if (HasText(selection.where)) text.append(" WHERE ").append(selection.where);
    if (HasText(selection.order)) text.append(" ORDER BY ").append(selection.order);
    if (selection.limit > 0 || selection.offset > 0)
        text += " LIMIT " + std::to_string(selection.limit > 0 ? selection.limit : INT64_MAX) + " OFFSET " +
                std::to_string(selection.offset);
    return text;
}

// ---- What lies directly inside one folder, as callers ask for it:
// "path like 'FOLDER/%' and path not like 'FOLDER/%/%'", FOLDER escaped for both

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

/// The folder, when the selection is exactly that of the paths directly inside one.
std::optional<std::string> FolderOf(const Selection& selection) {
    const bool is_ordered = !HasText(selection.order) || strcmp(selection.order, "path asc") == 0;
    if (strcmp(selection.columns, "path") != 0 || !HasText(selection.where) || !is_ordered ||
        selection.limit > 0 || selection.offset > 0)
        return std::nullopt;
    const std::optional<std::string_view> escaped = EscapedFolder(selection.where);
    return escaped ? Unescaped(*escaped) : std::nullopt;
}

KOLIDBRows* OpenRows(KOLIDB* db, const char* table, const Selection& selection) {
    return Guarded(db->database, [&]() -> KOLIDBRows* {
        const std::optional<std::string> folder = FolderOf(selection);
        std::unique_ptr<SqlRows> found = folder ? db->database.PathsInside(table, *folder)
                                                : db->database.Query(SelectText(table, selection));
        if (found == nullptr) return nullptr;
        const int count = found->count();
        std::unique_ptr<KOLIDBResult> result(new KOLIDBResult{std::move(found)});
        std::unique_ptr<KOLIDBRows> rows(new KOLIDBRows{db, result.get(), -1, count});
        static_cast<void>(result.release());  // the rows' now
        return rows.release();
    });
}

}  // namespace
}  // namespace koli::host

using namespace koli::host;

extern "C" {

KOLIDBRows* PhotoInfoDBOpen(int table, const char* columns, const char* where, int, const char* order,
                            int limit, int offset) {
    if (table < 0 || table >= static_cast<int>(std::size(kPhotoTables)) || !HasText(columns)) {
        KOLI_LOG("Bad parameter.");
        return nullptr;
    }
    return OpenRows(PhotoConnection(), kPhotoTables[table], {columns, where, order, limit, offset});
}

KOLIDBRows* MediaInfoDBOpen(int type, const char* columns, const char* where, int, const char* order,
                            int limit, int offset, int) {
    if (type < 0 || type >= kMediaStoreTables || !HasText(columns)) {
        KOLI_LOG("Bad parameter.");
        return nullptr;
    }
    return OpenRows(MediaConnection(), kMediaTables[type], {columns, where, order, limit, offset});
}

void PhotoInfoDBClose(KOLIDBRows* rows) {
    if (rows == nullptr) return;
    delete rows->result;
    delete rows;
}

int KOLIDBFetchRow(KOLIDBResult* result, int* row) {
    if (result == nullptr || row == nullptr || *row < -1 || *row >= result->rows->count() - 1) return -1;
    ++*row;
    return 0;
}

const char* KOLIDBFetchField(KOLIDBResult* result, int row, const char* column) {
    return result != nullptr ? result->rows->Field(row, column) : nullptr;
}

int KOLIDBExecute(KOLIDB* db, const char* sql, KOLIDBResult** result) {
    if (result != nullptr) *result = nullptr;
    if (db == nullptr || !HasText(sql)) {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    return Guarded(db->database, [=] { return db->database.Execute(sql) < 0 ? -1 : 0; });
}

const char* KOLIDBErrorGet(KOLIDB* db) {
    return db != nullptr ? db->database.error() : "";
}

}  // extern "C"
