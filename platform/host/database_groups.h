// The two databases and their groups of writes.
//
// A write opens a group (one transaction) when none is open; the group is closed by its size, its age, a
// flush, or whatever cannot run inside of it.  A statement that fails leaves the rest of its group alone.
// Whoever reads through the same object sees the open group.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/sql.h"

namespace koli::host {

/// One database: its connection, opened when it is first needed, and its open group.  A database that cannot
/// be opened makes every operation fail with one log line each; it is tried again some seconds later.
class Database {
  public:
    /// `schema` holds the steps of its tables (schema.h).
    Database(const char* file_name, std::vector<std::string> schema, Sql::ChangeListener changed);

    /// The kept statement of `text` (which must live as long as the program), to be filled in and run next,
    /// within a group.  Null on failure (logged).
    SqlStatement* Prepare(const char* text);
    /// Runs it.  Returns the number of rows affected, or -1 (logged).
    int Run(SqlStatement& statement);

    /// Runs one statement given as text within the group, with the same results; error() has the reason.
    int Execute(std::string_view text);
    /// The rows of a query; null on failure (logged).
    std::unique_ptr<SqlRows> Query(std::string_view text);

    /// Writes between BeginUnit and EndUnit take effect together: EndUnit(true) commits them, EndUnit(false)
    /// takes them back.  BeginUnit false, EndUnit -1: failed (logged), nothing of the unit took effect.
    bool BeginUnit();
    int EndUnit(bool keep);

    int Flush();   ///< commits the group; 0 or -1 (logged)
    int Harden();  ///< Flush, then durable; -1 also while something since the last Sync was lost or refused
    int Sync();    ///< Harden, then a new count of what was lost (logged)
    int Vacuum();  ///< gives unused pages back; 0 or -1 (logged)
    void Close();  ///< flushes and closes; the next use opens it again

    const char* error() const { return error_.c_str(); }

  private:
    bool Open();
    bool CreateTables();
    bool BeginGroup();
    void NoteLock();
    int CountWrite(int affected);
    bool HasMoved();
    void DropUnusable();
    int Failed(const char* what, int line = __builtin_LINE());
    int Refused(const char* what, int line = __builtin_LINE());

    const char* file_name_;
    std::vector<std::string> schema_;
    Sql::ChangeListener changed_;
    std::unique_ptr<Sql> sql_;
    std::string error_;          // of the last failure
    int64_t retry_at_ = 0;       // ms; no attempt to open it before this time, 0 = none failed
    int64_t group_began_ = 0;    // ms
    int group_writes_ = 0;       // statements run in the open group
    int64_t group_changes_ = 0;  // the connection's changes when the group was opened
    bool in_unit_ = false;
    bool suspect_ = false;   // the file failed a statement: open it anew before the next group
    bool unsynced_ = false;  // committed, by this process or one before it, and perhaps not on the disk
    bool written_ = false;   // committed since the last Sync
    bool lost_ = false;      // since the last Sync a group was lost, or a request refused for now
    bool locked_ = false;    // the last group or look-up found the database locked
};

Database& MediaDatabase();
Database& PhotoDatabase();

/// Closes both databases and opens them in `directory` from now on; null goes back to the machine's settings.
/// For tests and tools.
void DatabaseDirectorySet(const char* directory);

}  // namespace koli::host
