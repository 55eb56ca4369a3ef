#include "platform/host/database_copy.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "platform/host/tables.h"
#include "platform/koliindex.h"

namespace koli::host {
namespace {

constexpr int64_t kRowsOfPiece = 5000;  // compared or written between two commits
constexpr size_t kLostMax = 20;         // that are told

/// Small tables without a path that is theirs alone.
constexpr const char* kCopiedWhole[] = {kPhotoTables[KOLI_VIDEO_COMMENT], kPhotoTables[KOLI_PHOTO_SHARE],
                                        kPhotoTables[KOLI_PHOTO_ACCESS_RIGHT], kSettingTable};

bool IsCopiedWhole(const char* table) {
    return std::ranges::any_of(kCopiedWhole,
                               [table](const char* whole) { return strcmp(whole, table) == 0; });
}

/// What both have of a table's columns, the path first: an older program's lacks some.
std::vector<std::string> CommonColumns(Sql& from, Sql& to, const char* table) {
    const std::vector<std::string> known = to.Columns(table);
    std::vector<std::string> columns = from.Columns(table);
    std::erase_if(columns,
                  [&known](const std::string& column) { return std::ranges::count(known, column) == 0; });
    return columns;
}

std::string Listed(const std::vector<std::string>& words) {
    std::string list;
    for (const std::string& word : words)
        list.append(list.empty() ? "" : ", ").append(word);
    return list;
}

/// Two engines write the same number in other digits.
bool IsSameField(const SqlStatement& a, const SqlStatement& b, int column) {
    const bool is_real =
        a.KindOf(column) == SqlStatement::Kind::kReal || b.KindOf(column) == SqlStatement::Kind::kReal;
    return is_real ? a.RealNumber(column) == b.RealNumber(column) : a.Field(column) == b.Field(column);
}

bool IsSameRow(const SqlStatement& a, const SqlStatement& b) {
    for (int column = 0; column < a.columns(); ++column)
        if (!IsSameField(a, b, column)) return false;
    return true;
}

void FillFrom(const SqlStatement& row, SqlStatement& statement) {
    for (int column = 0; column < row.columns(); ++column)
        switch (row.KindOf(column)) {
            case SqlStatement::Kind::kInteger:
                statement.Integer(column + 1, row.Number(column));
                break;
            case SqlStatement::Kind::kReal:
                statement.Real(column + 1, row.RealNumber(column));
                break;
            default:
                statement.Text(column + 1, row.Field(column));
        }
}

std::string InsertText(const char* table, const std::vector<std::string>& columns) {
    std::string parameters;
    for (size_t i = 1; i <= columns.size(); ++i)
        parameters.append(i == 1 ? "?" : ", ?").append(std::to_string(i));
    return std::string("INSERT INTO ") + table + " (" + Listed(columns) + ") VALUES (" + parameters + ")";
}

}  // namespace

std::vector<const char*> TablesOf(int database) {
    std::vector<const char*> tables;
    if (database == KOLI_MEDIA_DB)
        tables.assign(std::begin(kMediaTables), std::end(kMediaTables));
    else
        tables.assign(std::begin(kPhotoTables), std::end(kPhotoTables));
    tables.push_back(database == KOLI_MEDIA_DB ? kProblemTable : kSettingTable);
    return tables;
}

bool DatabaseCopy::Fail(const Sql& sql) {
    result_.error = sql.failure().reason;
    return false;
}

bool DatabaseCopy::Run(int database) {
    for (const char* table : TablesOf(database))
        if (!from_.Columns(table).empty() && !CopyTable(table)) return false;
    if (!from_.failure().reason.empty()) return Fail(from_);
    return to_.Harden() || Fail(to_);
}

bool DatabaseCopy::CopyTable(const char* table) {
    table_ = &result_.tables.emplace_back(CopiedTable{table});
    {
        const auto count = from_.Prepare(std::string("SELECT count(*) FROM ") + table);
        if (count == nullptr || !count->Next()) return Fail(from_);
        table_->total = count->Number(0);
    }
    const std::vector<std::string> columns = CommonColumns(from_, to_, table);
    insert_ = to_.Kept(InsertText(table, columns));
    if (insert_ == nullptr) return Fail(to_);
    const std::string select = "SELECT " + Listed(columns) + " FROM " + table;
    const bool is_done = IsCopiedWhole(table) ? CopyWhole(table, select) : CopyByPath(table, select);
    watch_(*table_);
    return is_done;
}

// ---- Row by row

bool DatabaseCopy::CopyByPath(const char* table, const std::string& select) {
    const auto source = from_.Prepare(select + " ORDER BY " + from_.PathOrder(table));
    const auto target = to_read_.Prepare(select + " ORDER BY " + to_read_.PathOrder(table));
    remove_ = to_.Kept(std::string("DELETE FROM ") + table + " WHERE path = ?1");
    if (source == nullptr) return Fail(from_);
    if (target == nullptr) return Fail(to_read_);
    if (remove_ == nullptr || !to_.Begin()) return Fail(to_);
    if (!Merge(*source, *target)) return false;
    if (source->failed()) return Fail(from_);
    return target->failed() ? Fail(to_read_) : Commit();
}

/// Rows of both in the order of their paths, which stand first.
bool DatabaseCopy::Merge(SqlStatement& source, SqlStatement& target) {
    bool has_source = source.Next(), has_target = target.Next();
    for (int64_t steps = 1; has_source || has_target; ++steps) {
        const int order = !has_source ? 1 : !has_target ? -1 : source.Field(0).compare(target.Field(0));
        const bool is_other = order != 0 || !IsSameRow(source, target);
        if (is_other && order >= 0 && !Remove(target)) return false;
        if (is_other && order <= 0 && !Insert(source)) return false;
        if (order <= 0) {
            ++table_->rows;
            has_source = source.Next();
        }
        if (order >= 0) has_target = target.Next();
        // Behind a failure the other rows would seem to be gone.
        if (source.failed() || target.failed()) break;
        if (steps % kRowsOfPiece == 0 && !CommitPiece()) return false;
    }
    return true;
}

/// A row that the target does not take is told; false when the target takes nothing any more.
bool DatabaseCopy::Insert(const SqlStatement& row) {
    FillFrom(row, *insert_);
    ++table_->written;
    if (to_.RunLater(*insert_) >= 0) return true;
    if (to_.failure().passes) return Fail(to_);
    AddLost(to_.failure().reason + ": " + std::string(row.Field(0)));
    return true;
}

bool DatabaseCopy::Remove(const SqlStatement& row) {
    remove_->Text(1, row.Field(0));
    ++table_->removed;
    return to_.RunLater(*remove_) >= 0 || Fail(to_);
}

void DatabaseCopy::AddLost(const std::string& line) {
    --table_->written;
    ++result_.lost_rows;
    if (result_.lost.size() < kLostMax) result_.lost.push_back(table_->name + ": " + line);
}

bool DatabaseCopy::Commit() {
    const bool is_done = to_.Settle() && to_.Execute("COMMIT") >= 0;
    for (const std::string& line : to_.TakeLost())
        AddLost(line);
    return is_done || Fail(to_);
}

bool DatabaseCopy::CommitPiece() {
    if (!Commit()) return false;
    watch_(*table_);
    return to_.Begin() || Fail(to_);
}

// ---- At once

bool DatabaseCopy::CopyWhole(const char* table, const std::string& select) {
    const bool is_setting = strcmp(table, kSettingTable) == 0;
    const std::string all_but_mark = is_setting ? std::string(" WHERE name <> '") + kCopyMark + "'" : "";
    const auto source = from_.Prepare(select + all_but_mark + " ORDER BY 1");
    if (source == nullptr) return Fail(from_);
    if (!to_.Begin()) return Fail(to_);
    const int removed = to_.Execute(std::string("DELETE FROM ") + table + all_but_mark);
    if (removed < 0) return Fail(to_);
    table_->removed += removed;
    for (; source->Next(); ++table_->rows)
        if (!Insert(*source)) return false;
    return source->failed() ? Fail(from_) : Commit();
}

}  // namespace koli::host
