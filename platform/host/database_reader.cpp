#include "platform/host/database_reader.h"

#include <algorithm>
#include <cstring>

#include "platform/host/tables.h"
#include "platform/koliindex.h"

namespace koli::host {
namespace {

/// What a row is for Between, as columns of its table.
const char* ShapeOf(const char* table) {
    if (strcmp(table, kDirectoryTable) == 0) return "path, 0, '', 0";
    if (strcmp(table, kProblemTable) == 0) return "path, kind, '', 0";
    return strcmp(table, kPhotoTables[KOLI_PHOTO_INFO]) == 0 ? "path, file_size, ctime, 0"
                                                             : "path, file_size, ctime, has_cover";
}

/// Asks of each table that holds files or folders.
template <typename HasRow>
bool AnyTableOfFiles(HasRow has_row) {
    return std::ranges::any_of(kMediaTables, has_row) || has_row(kPhotoTables[KOLI_PHOTO_INFO]);
}

constexpr int kFirstValue = 4;  // parameters 1 to 3 are the paths

/// A table that a database has once it has been created.
const char* FirstTable(int database) {
    return database == KOLI_MEDIA_DB ? kDirectoryTable : kPhotoTables[KOLI_PHOTO_INFO];
}

std::string SelectFrom(const char* table, const std::vector<std::string>& columns) {
    std::string text = "SELECT ";
    for (const std::string& column : columns)
        text.append(&column == &columns.front() ? "" : ", ").append(column);
    return text.append(" FROM ").append(table).append(" WHERE ");
}

std::string SelectText(const char* table, const std::vector<std::string>& columns,
                       const RowSelection& selection, const std::string& order) {
    std::string text = SelectFrom(table, columns);
    text += selection.below.empty() ? "1 = 1" : std::string("(") + kPathRange + ")";
    int parameter = kFirstValue;
    for (const ColumnCondition& condition : selection.conditions) {
        text.append(" AND ").append(condition.column).append(" ").append(condition.comparison).append(" ");
        text += condition.is_number ? condition.value : "?" + std::to_string(parameter++);
    }
    text += " ORDER BY " + order;
    if (selection.limit > 0) text += " LIMIT " + std::to_string(selection.limit);
    if (selection.offset > 0) text += " OFFSET " + std::to_string(selection.offset);
    return text;
}

}  // namespace

std::unique_ptr<Sql> DatabaseReader::OpenOne(int database) {
    SqlFailure failure;
    std::unique_ptr<Sql> sql = engine_->OpenToRead(database, &failure);
    if (sql != nullptr && sql->Columns(FirstTable(database)).empty() && sql->failure().reason.empty())
        return nullptr;
    if (failure.reason.empty()) return sql;
    error_ = "cannot read " + engine_->PlaceOf(database) + ": " + failure.reason;
    is_denied_ = failure.is_denied;
    return nullptr;
}

bool DatabaseReader::Open(std::unique_ptr<DatabaseEngine> engine) {
    engine_ = std::move(engine);
    media_ = OpenOne(KOLI_MEDIA_DB);
    if (error_.empty()) photo_ = OpenOne(KOLI_PHOTO_DB);
    return error_.empty();
}

std::string DatabaseReader::error() const {
    if (!error_.empty()) return error_;
    for (const Sql* sql : {media_.get(), photo_.get()})
        if (sql != nullptr && !sql->failure().reason.empty())
            return "cannot read " + engine_->PlaceOf(sql == media_.get() ? KOLI_MEDIA_DB : KOLI_PHOTO_DB) +
                   ": " + sql->failure().reason;
    return "";
}

std::string DatabaseReader::MarkOf(int database) const {
    const auto& sql = database == KOLI_MEDIA_DB ? media_ : photo_;
    if (sql != nullptr) return sql->ChangeMark();
    SqlFailure ignored;
    const auto created = engine_->OpenToRead(database, &ignored);
    return created != nullptr && !created->Columns(FirstTable(database)).empty() ? "created" : "";
}

std::string DatabaseReader::ChangeMark() const {
    return MarkOf(KOLI_MEDIA_DB) + "\n" + MarkOf(KOLI_PHOTO_DB);
}

void DatabaseReader::SaveMemory() const {
    for (Sql* sql : {media_.get(), photo_.get()})
        if (sql != nullptr) sql->SaveMemory();
}

// ---- Rows

/// The database that has the table; null for none.  `problem` is younger than the others.
Sql* DatabaseReader::With(const char* table) const {
    const int database = KOLITableDatabase(table);
    if (database != 0) return database == KOLI_MEDIA_DB ? media_.get() : photo_.get();
    return media_ != nullptr && !media_->Columns(table).empty() ? media_.get() : nullptr;
}

std::unique_ptr<SqlStatement> DatabaseReader::Rows(const char* table, const std::string& text) const {
    Sql* const sql = With(table);
    return sql != nullptr ? sql->Prepare(text) : nullptr;
}

std::vector<std::string> DatabaseReader::Columns(const char* table) const {
    Sql* const sql = With(table);
    return sql != nullptr ? sql->Columns(table) : std::vector<std::string>();
}

std::unique_ptr<SqlStatement> DatabaseReader::Find(const char* table, const char* column,
                                                   std::string_view value) const {
    auto rows = Rows(table, std::string("SELECT * FROM ") + table + " WHERE " + column + " = ?1");
    if (rows != nullptr) rows->Fill(value);
    return rows;
}

std::unique_ptr<SqlStatement> DatabaseReader::List(const char* table, const std::vector<std::string>& columns,
                                                   const RowSelection& selection) const {
    auto rows = Rows(table, SelectText(table, columns, selection, OrderOf(table, selection)));
    if (rows == nullptr) return nullptr;
    if (!selection.below.empty()) FillPathRange(*rows, selection.below);
    int parameter = kFirstValue;
    for (const ColumnCondition& condition : selection.conditions)
        if (!condition.is_number) rows->Text(parameter++, condition.value);
    return rows;
}

std::string DatabaseReader::OrderOf(const char* table, const RowSelection& selection) const {
    Sql* const sql = With(table);
    if (sql == nullptr) return "path";
    const std::string direction = selection.is_reversed ? " DESC" : "";
    std::string by_path = sql->PathOrder(table) + direction;
    if (HasEveryLibrary()) by_path += ", library" + direction;
    if (selection.sort.empty()) return by_path;
    const bool is_text = selection.sort_key != nullptr;
    return (is_text ? sql->SortTerm(selection.sort, selection.sort_key) : selection.sort) + direction + ", " +
           by_path;
}

std::unique_ptr<SqlStatement> DatabaseReader::Between(const char* table, std::string_view first,
                                                      std::string_view behind) const {
    const bool is_problem = strcmp(table, kProblemTable) == 0;
    if (is_problem && !KnowsProblemKinds()) return nullptr;
    const char* const which = is_problem ? " AND kind <> 0" : "";
    Sql* const sql = With(table);
    if (sql == nullptr) return nullptr;
    auto rows =
        sql->Prepare(std::string("SELECT ") + ShapeOf(table) + " FROM " + table +
                     " WHERE path >= ?1 AND path < ?2" + which + " ORDER BY " + sql->PathOrder(table));
    if (rows != nullptr) rows->Fill(first, behind);
    return rows;
}

std::unique_ptr<SqlStatement> DatabaseReader::Behind(const char* table,
                                                     const std::vector<std::string>& columns,
                                                     std::string_view key, int64_t limit) const {
    const std::string& name = columns.front();
    auto rows = Rows(table, SelectFrom(table, columns) + name + " > ?1 ORDER BY " + name + " LIMIT " +
                                std::to_string(limit));
    if (rows != nullptr) rows->Fill(key);
    return rows;
}

Sql::Comparison DatabaseReader::Comparison() const {
    const Sql* const sql = media_ != nullptr ? media_.get() : photo_.get();
    return sql != nullptr ? sql->PathComparison() : [](std::string_view, std::string_view) { return 0; };
}

std::unique_ptr<SqlStatement> DatabaseReader::ByKey(const char* table,
                                                    const std::vector<std::string>& columns) const {
    return Rows(table, SelectFrom(table, columns) + columns.front() + " = ?1");
}

/// A daemon of an earlier version has not told which problems pass.
bool DatabaseReader::KnowsProblemKinds() const {
    const std::vector<std::string> columns = Columns(kProblemTable);
    return std::find(columns.begin(), columns.end(), "kind") != columns.end();
}

// ---- Answers

int64_t DatabaseReader::Count(const char* table) const {
    const auto rows = Rows(table, std::string("SELECT count(*) FROM ") + table);
    return rows != nullptr && rows->Next() ? rows->Number(0) : 0;
}

int64_t DatabaseReader::CountBelow(const char* table, const std::string& path) const {
    auto rows = Rows(table, std::string("SELECT count(*) FROM ") + table + " WHERE " + kPathRange);
    return rows != nullptr && FillPathRange(*rows, path).Next() ? rows->Number(0) : 0;
}

int64_t DatabaseReader::FilesBelow(const std::string& path) const {
    int64_t files = 0;
    for (int i = 0; i < kMediaStoreTables; ++i)
        files += CountBelow(kMediaTables[i], path);
    return files;
}

bool DatabaseReader::HasRowsBelow(const std::string& path) const {
    return AnyTableOfFiles([&](const char* table) {
        const auto rows = Between(table, FirstKeyBelow(path), KeyBehind(path));
        return rows != nullptr && rows->Next();
    });
}

bool DatabaseReader::HasRowsAt(const std::string& path) const {
    const auto has_row = [&](const char* table) {
        const auto rows = List(table, {"path"}, {.below = path, .limit = 1});
        return rows != nullptr && rows->Next();
    };
    return AnyTableOfFiles(has_row) || has_row(kProblemTable);
}

bool DatabaseReader::IsRecordedFolder(const std::string& path) const {
    const auto rows = Find(kDirectoryTable, "path", path);
    return rows != nullptr && rows->Next();
}

std::unique_ptr<SqlStatement> DatabaseReader::Albums() const {
    return Rows(
        kPhotoTables[KOLI_PHOTO_SHARE],
        HasEveryLibrary()
            ? "SELECT sharename, title, description, library FROM photo_share ORDER BY sharename, library"
            : "SELECT sharename, title, description FROM photo_share ORDER BY sharename");
}

std::unordered_set<std::string> DatabaseReader::AlbumNames() const {
    std::unordered_set<std::string> names;
    const auto rows = Albums();
    while (rows != nullptr && rows->Next())
        names.emplace(rows->Field(0));
    return names;
}

}  // namespace koli::host
