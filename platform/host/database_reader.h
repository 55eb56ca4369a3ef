// What koliindexctl asks the daemon's two databases.  Read-only.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "platform/host/path_range.h"
#include "platform/host/sql/database_engine.h"

namespace koli::host {

/// A condition that every engine understands alike, on a column that there is: a number against a number, or
/// texts byte by byte.
struct ColumnCondition {
    std::string column;
    const char* comparison;  // SQL's: "=", "<>", and of numbers "<", ">", "<=", ">="
    std::string value;
    bool is_number = false;  // the value is a number's text, and the column holds numbers
};

struct RowSelection {
    std::vector<ColumnCondition> conditions = {};  // all must hold
    std::string below = {};                        // a path: rows at and below it; "" = all
    int64_t limit = 0;                             // 0 = all
    int64_t offset = 0;                            // rows that are left out; only with a limit
    std::string sort = {};                         // a column, then by path; "" = by path alone
    Sql::TextKey sort_key = nullptr;  // how the texts of that column are compared; null = numbers
    bool is_reversed = false;
};

/// Both databases.  One that the daemon has not created yet counts as empty, and so does a table that it has
/// not made yet.  Failures show in error() alone; an answer then lacks what could not be read.
class DatabaseReader {
  public:
    /// False when there is a database that cannot be read; error() tells why.
    bool Open(std::unique_ptr<DatabaseEngine> engine);

    /// True when the rows are those of all libraries, and each table has a column `library`, by which rows of
    /// the same path are ordered.
    bool HasEveryLibrary() const { return engine_->HasEveryLibrary(); }

    /// The columns of a table; none without it.
    std::vector<std::string> Columns(const char* table) const;

    /// The rows whose `column` is `value`, with all columns; null without the table.  Like all rows that are
    /// given here they are read as they are asked for, and must end before this.
    std::unique_ptr<SqlStatement> Find(const char* table, const char* column, std::string_view value) const;

    /// The selected rows in their order; null without the table.
    std::unique_ptr<SqlStatement> List(const char* table, const std::vector<std::string>& columns,
                                       const RowSelection& selection) const;

    /// The rows with first <= path < behind in that order: path, size, ctime, has_cover, where a table has no
    /// such thing '' or 0.  Of `problem` those of some kind, which stands for the size.
    std::unique_ptr<SqlStatement> Between(const char* table, std::string_view first,
                                          std::string_view behind) const;

    /// The rows behind `key` in the order of `columns`' first, which is the key, at most `limit`; null
    /// without the table.  A whole table read so holds no database for longer than a piece of it.
    std::unique_ptr<SqlStatement> Behind(const char* table, const std::vector<std::string>& columns,
                                         std::string_view key, int64_t limit) const;

    /// Which of two keys comes first in that order; to be asked after the end of this, too.
    Sql::Comparison Comparison() const;

    /// The row whose key, `columns`' first, is parameter 1, for whoever asks for many; null without the
    /// table.
    std::unique_ptr<SqlStatement> ByKey(const char* table, const std::vector<std::string>& columns) const;

    /// Rows of any table.
    int64_t Count(const char* table) const;

    /// Rows of a table at and below `path`.
    int64_t CountBelow(const char* table, const std::string& path) const;

    /// Files (not folders) in the media store at and below `path`.
    int64_t FilesBelow(const std::string& path) const;

    /// True when a table of files or folders has a row below `path`.
    bool HasRowsBelow(const std::string& path) const;

    /// True when any table has a row at or below `path`.
    bool HasRowsAt(const std::string& path) const;

    /// True when `path` is recorded as a folder.
    bool IsRecordedFolder(const std::string& path) const;

    /// All albums in the order of their names: sharename, title, description, and of all libraries library;
    /// null without the table.
    std::unique_ptr<SqlStatement> Albums() const;

    /// The names of all albums.
    std::unordered_set<std::string> AlbumNames() const;

    /// A query of one table, for what stands on this floor; null without the table.
    std::unique_ptr<SqlStatement> Rows(const char* table, const std::string& text) const;

    /// Bytes that are others once the databases have changed, or have been created (Sql::ChangeMark).
    std::string ChangeMark() const;
    void SaveMemory() const;  ///< as Sql::SaveMemory

    /// What has failed so far; "" = nothing.
    std::string error() const;
    bool is_denied() const { return is_denied_; }  ///< this user may not read a database

  private:
    std::unique_ptr<Sql> OpenOne(int database);
    std::string MarkOf(int database) const;
    std::string OrderOf(const char* table, const RowSelection& selection) const;
    Sql* With(const char* table) const;
    bool KnowsProblemKinds() const;

    std::unique_ptr<DatabaseEngine> engine_;
    std::unique_ptr<Sql> media_, photo_;
    std::string error_;
    bool is_denied_ = false;
};

}  // namespace koli::host
