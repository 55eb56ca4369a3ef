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

/// A condition on a column that there is.
struct ColumnCondition {
    std::string column;
    bool is_part;  // the value may stand anywhere in the field, in any case
    std::string value;
};

struct RowSelection {
    std::vector<ColumnCondition> conditions = {};  // all must hold
    std::string below = {};                        // a path: rows at and below it; "" = all
    int64_t limit = 0;                             // 0 = all
};

/// Both databases.  One that the daemon has not created yet counts as empty, and so does a table that it has
/// not made yet.  Failures show in error() alone; an answer then lacks what could not be read.
class DatabaseReader {
  public:
    /// False when there is a database that cannot be read; error() tells why.
    bool Open(std::unique_ptr<DatabaseEngine> engine);

    /// The columns of a table; none without it.
    std::vector<std::string> Columns(const char* table) const;

    /// The rows whose `column` is `value`, with all columns; null without the table.  Like all rows that are
    /// given here they are read as they are asked for, and must end before this.
    std::unique_ptr<SqlStatement> Find(const char* table, const char* column, std::string_view value) const;

    /// The selected rows in the order of their paths; null without the table.
    std::unique_ptr<SqlStatement> List(const char* table, const std::vector<std::string>& columns,
                                       const RowSelection& selection) const;

    /// The rows with first <= path < behind in that order: path, size, ctime, has_cover, where a table has no
    /// such thing '' or 0.  Of `problem` those of some kind, which stands for the size.
    std::unique_ptr<SqlStatement> Between(const char* table, std::string_view first,
                                          std::string_view behind) const;

    /// Rows of a table at and below `path`.
    int64_t CountBelow(const char* table, const std::string& path) const;

    /// Files (not folders) in the media store at and below `path`.
    int64_t FilesBelow(const std::string& path) const;

    /// True when a table of files or folders has a row below `path`.
    bool HasRowsBelow(const std::string& path) const;

    /// True when `path` is recorded as a folder.
    bool IsRecordedFolder(const std::string& path) const;

    /// The names of all albums.
    std::unordered_set<std::string> AlbumNames() const;

    /// What has failed so far; "" = nothing.
    std::string error() const;
    bool is_denied() const { return is_denied_; }  ///< this user may not read a database

  private:
    std::unique_ptr<Sql> OpenOne(int database, const char* table);
    std::unique_ptr<SqlStatement> Rows(const char* table, const std::string& text) const;
    Sql* With(const char* table) const;
    bool KnowsProblemKinds() const;

    std::unique_ptr<DatabaseEngine> engine_;
    std::unique_ptr<Sql> media_, photo_;
    std::string error_;
    bool is_denied_ = false;
};

}  // namespace koli::host
