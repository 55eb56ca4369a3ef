// The two databases and their groups of writes.
//
// A write opens a group (one transaction) when none is open; the group is closed by its size, its age, a
// flush, or whatever cannot run inside of it.  A statement that fails for good leaves the rest of its group
// alone.  One that fails for a reason that passes takes its group with it, and the database refuses
// everything until the next batch begins: the batch has to be repeated, and nothing may overtake what was
// refused. Whoever reads through the same object sees the open group.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/host/sql/database_engine.h"

namespace koli::host {

/// One database: its connection, opened when it is first needed, and its open group.  A database that cannot
/// be opened makes every operation fail; it is tried again some seconds later.  A failure is logged once a
/// batch.
class Database {
  public:
    /// `id` is its KOLIDatabase.
    Database(int id, Sql::ChangeListener changed) : id_(id), name_(DatabaseName(id)), changed_(changed) {}

    /// A batch begins: what was refused or has failed before is forgotten.
    void BeginBatch();
    /// Why the database takes nothing more until the next BeginBatch; "" when it does.
    const char* refusal() const { return refusal_.c_str(); }
    bool IsRefusing() const { return !refusal_.empty(); }
    /// Memory has run out inside an operation, which has left it half done: the open group is lost.
    void RefuseForMemory() noexcept;

    /// The kept statement of `text`, to be filled in and run next, within a group.  Null on failure.
    SqlStatement* Prepare(std::string_view text);
    /// Runs it.  Returns the number of rows affected, or -1.  RunAdd is for a row that is merely added or
    /// refreshed, which may be committed inside a unit.
    int Run(SqlStatement& statement);
    int RunAdd(SqlStatement& statement);
    /// RunAdd returns 0 for a row that is put off, which may fail later; this one has its answer.
    int RunAddNow(SqlStatement& statement);

    /// The same for the kept statement that saves a row.
    SqlStatement* PrepareSave(const SaveForm& form);
    template <typename... Values>
    int Add(const SaveForm& form, const Values&... values) {
        SqlStatement* const statement = PrepareSave(form);
        return statement != nullptr ? RunAdd(statement->Fill(values...)) : -1;
    }

    /// Runs the kept statement of `text` with these values, with the same results.
    template <typename... Values>
    int Change(std::string_view text, const Values&... values) {
        SqlStatement* const statement = Prepare(text);
        return statement != nullptr ? Run(statement->Fill(values...)) : -1;
    }

    /// The same without waiting for the result, where an engine puts that off: not inside of a unit.
    template <typename... Values>
    int ChangeLater(std::string_view text, const Values&... values) {
        SqlStatement* const statement = Prepare(text);
        return statement != nullptr ? RunAdd(statement->Fill(values...)) : -1;
    }

    /// Removes the row of `path` from a table that is keyed by it, or all at and below it, with the same
    /// results.  Of many rows, outside of a unit, some can be gone when it fails.
    int Remove(const std::string& table, std::string_view path);
    int RemoveBelow(const std::string& table, std::string_view path);

    /// Runs one statement given as text within the group, with the same results; error() has the reason.
    int Execute(std::string_view text);

    /// The rows of a query; null on failure.
    std::unique_ptr<SqlRows> Query(std::string_view text);
    /// The rows of the kept query of `text` with these values.
    template <typename... Values>
    std::unique_ptr<SqlRows> Ask(std::string_view text, const Values&... values) {
        return Answer([&](Sql& sql) {
            SqlStatement* const query = sql.Kept(text);
            return query != nullptr ? &query->Fill(values...) : nullptr;
        });
    }
    /// The paths of `table` directly inside `folder`, in their order (Sql::PathsInside).
    std::unique_ptr<SqlRows> PathsInside(const char* table, const std::string& folder);

    /// Writes between BeginUnit and EndUnit take effect together; units may lie in each other. EndUnit(false)
    /// takes them back.  BeginUnit false, EndUnit -1: nothing of the unit takes effect.
    bool BeginUnit();
    int EndUnit(bool keep);

    /// Sets the value that the next group with changes stores under `name` in the table `setting`, in its own
    /// transaction.  There is one at a time; it is dropped with what the database loses or refuses, and when
    /// the next batch begins.
    void SetNote(const char* name, std::string value);
    /// Drops such a value without one of its own to come.  Returns 0 when it is gone, and durably so, else
    /// -1.
    int RemoveNote(const char* name);

    /// Does what RunAdd has put off: from then on the changed tables are known.
    void Settle();
    int Flush();   ///< commits the group, unless a unit is at work in it; 0 or -1
    void Tick();   ///< Flush for a group that has been open for a while
    int Harden();  ///< Flush, then durable; 1 while a unit is at work, -1 on failure and while it refuses
    int Sync();    ///< Harden; says in the log that the batch has to be repeated
    int Vacuum();  ///< gives unused pages back, in short steps; 0 or -1
    void Close();  ///< flushes and closes; the next use opens it again

    bool IsGroupOpen() const { return sql_ != nullptr && sql_->InTransaction(); }
    const char* error() const { return error_.c_str(); }

  private:
    bool Open();
    bool OpenToRead();
    bool IsFree();
    bool DropUnusable();
    bool BeginGroup();
    bool BeginTransaction();
    void MissGroup();
    void LeaveGap();
    int Commit();
    bool StoreNote();
    int CountWrite(int affected);
    bool IsUnitAtWork() const { return units_ > 0 && unit_changed_; }
    bool Report(const SqlFailure& failure, const char* what, int line = __builtin_LINE());
    void TellLost();
    SqlStatement* Prepared(SqlStatement* statement);
    int Failed(const char* what, int line = __builtin_LINE());
    std::unique_ptr<SqlRows> Given(std::unique_ptr<SqlRows> rows);

    /// The rows of the query that `ask` fills in, a pointer or null.
    template <typename Ask>
    std::unique_ptr<SqlRows> Answer(Ask ask) {
        if (!OpenToRead()) return nullptr;
        SqlStatement* const query = ask(*sql_);
        return Given(query != nullptr ? sql_->Query(*query) : nullptr);
    }
    void Refuse(const std::string& reason);

    int id_;
    const char* name_;  // for people
    Sql::ChangeListener changed_;
    std::unique_ptr<DatabaseEngine> engine_;  // where it is open, or was last
    std::unique_ptr<Sql> sql_;
    std::string error_;                // of the last failure
    std::string told_;                 // the failure that was logged last in this batch
    std::string refusal_;              // '' = takes changes
    int64_t retry_at_ = 0;             // ms; no attempt to open it before this time, 0 = none failed
    bool has_group_ = false;           // has been begun, and neither committed nor taken back
    int64_t group_began_ = 0;          // ms
    int64_t group_ended_ = 0;          // ms
    int64_t busy_since_ = 0;           // ms; groups have followed each other without a gap since then
    int group_writes_ = 0;             // rows written in the open group
    int64_t group_changes_ = 0;        // the connection's changes when the group was opened
    int units_ = 0;                    // units that are open, one in the other
    uint64_t savepoints_ = 0;          // bit n: unit n began inside the open group
    bool unit_changed_ = false;        // a unit has changed or removed something
    const char* note_name_ = nullptr;  // null = nothing to store
    std::string note_;
    bool suspect_ = false;   // what it stands on failed a statement: open it anew before the next group
    bool unsynced_ = false;  // committed, by this process or one before it, and perhaps not on the disk
    bool written_ = false;   // committed in this batch
};

/// Milliseconds of a clock that nobody sets, some milliseconds behind at most.
int64_t CoarseNowMs();

Database& MediaDatabase();
Database& PhotoDatabase();

/// Closes both databases and opens them in `directory` from now on; null goes back to the machine's settings.
/// For tests and tools.
void DatabaseDirectorySet(const char* directory);

}  // namespace koli::host
