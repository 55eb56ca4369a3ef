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

constexpr int kFirstValue = 4;  // parameters 1 to 3 are the paths

std::string SelectText(const char* table, const std::vector<std::string>& columns,
                       const RowSelection& selection, const char* order) {
    std::string text = "SELECT ";
    for (const std::string& column : columns)
        text.append(&column == &columns.front() ? "" : ", ").append(column);
    text.append(" FROM ").append(table).append(" WHERE ");
    text += selection.below.empty() ? "1 = 1" : std::string("(") + kPathRange + ")";
    int parameter = kFirstValue;
    for (const auto& [column, is_part, value] : selection.conditions) {
        const std::string place = "?" + std::to_string(parameter++);
        text.append(is_part ? " AND strpos(lower(CAST(" : " AND ").append(column);
        text.append(is_part ? " AS text)), lower(" : " = ").append(place).append(is_part ? ")) > 0" : "");
    }
    text.append(" ORDER BY ").append(order);
    return selection.limit > 0 ? text + " LIMIT " + std::to_string(selection.limit) : text;
}

}  // namespace

std::unique_ptr<Sql> DatabaseReader::OpenOne(int database, const char* table) {
    SqlFailure failure;
    std::unique_ptr<Sql> sql = engine_->OpenToRead(database, &failure);
    if (sql != nullptr && sql->Columns(table).empty() && sql->failure().reason.empty()) return nullptr;
    if (failure.reason.empty()) return sql;
    error_ = "cannot read " + engine_->PlaceOf(database) + ": " + failure.reason;
    is_denied_ = failure.is_denied;
    return nullptr;
}

bool DatabaseReader::Open(std::unique_ptr<DatabaseEngine> engine) {
    engine_ = std::move(engine);
    media_ = OpenOne(KOLI_MEDIA_DB, kDirectoryTable);
    if (error_.empty()) photo_ = OpenOne(KOLI_PHOTO_DB, kPhotoTables[KOLI_PHOTO_INFO]);
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
    Sql* const sql = With(table);
    auto rows =
        sql != nullptr ? sql->Prepare(SelectText(table, columns, selection, sql->PathOrder(table))) : nullptr;
    if (rows == nullptr) return nullptr;
    if (!selection.below.empty()) FillPathRange(*rows, selection.below);
    int parameter = kFirstValue;
    for (const ColumnCondition& condition : selection.conditions)
        rows->Text(parameter++, condition.value);
    return rows;
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

/// A daemon of an earlier version has not told which problems pass.
bool DatabaseReader::KnowsProblemKinds() const {
    const std::vector<std::string> columns = Columns(kProblemTable);
    return std::find(columns.begin(), columns.end(), "kind") != columns.end();
}

// ---- Answers

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
    for (const char* table : {"directory", "music", "video", "photo", "playlist", "photo_info"}) {
        const auto rows = Between(table, FirstKeyBelow(path), KeyBehind(path));
        if (rows != nullptr && rows->Next()) return true;
    }
    return false;
}

bool DatabaseReader::IsRecordedFolder(const std::string& path) const {
    const auto rows = Find(kDirectoryTable, "path", path);
    return rows != nullptr && rows->Next();
}

std::unordered_set<std::string> DatabaseReader::AlbumNames() const {
    std::unordered_set<std::string> names;
    const auto rows = Rows(kPhotoTables[KOLI_PHOTO_SHARE], "SELECT sharename FROM photo_share");
    while (rows != nullptr && rows->Next())
        names.emplace(rows->Field(0));
    return names;
}

}  // namespace koli::host
