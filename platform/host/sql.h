// A small SQL interface: the only place that knows which engine holds the databases.
//
// Nothing here logs; a failed operation leaves its reason in Sql::error().
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace koli::host {

/// The rows of a query, held in memory.
class SqlRows {
  public:
    int count() const { return count_; }
    /// The text of a field, "" for NULL; null when there is no such row or column.  Column names are compared
    /// without regard to case.  Valid as long as the rows.
    const char* Field(int row, const char* column) const;

  private:
    friend class Sql;
    std::vector<std::string> columns_;
    std::vector<size_t> offsets_;  // where each field begins in text_, row by row
    std::string text_;             // all fields, each with its terminator
    int count_ = 0;
};

/// A prepared statement.  Indexes count from 1; values are copied.
class SqlStatement {
  public:
    ~SqlStatement();
    SqlStatement(const SqlStatement&) = delete;
    SqlStatement& operator=(const SqlStatement&) = delete;

    void Text(int index, std::string_view value);  ///< any bytes; compared byte by byte
    void Integer(int index, int64_t value);
    void Real(int index, double value);  ///< finite

  private:
    friend class Sql;
    SqlStatement(sqlite3_stmt* handle, std::string table) : handle_(handle), table_(std::move(table)) {}
    sqlite3_stmt* handle_;
    std::string table_;  // the table that it changes, '' = none
};

/// One connection.  Write-ahead log, a cache of 2 MB, LIKE that heeds case.
class Sql {
  public:
    /// Told the table's name after each statement that changed rows of it.
    using ChangeListener = void (*)(const char* table);

    /// Opens `file`, which is created when it is missing (its directory is not).  Null when that fails, with
    /// the reason in `*error`: no permission, not a database, busy; `*passes`, when not null, tells whether
    /// it passes.
    static std::unique_ptr<Sql> Open(const std::string& file, ChangeListener changed, std::string* error,
                                     bool* passes = nullptr);
    ~Sql();
    Sql(const Sql&) = delete;
    Sql& operator=(const Sql&) = delete;

    /// The statement of `text`, prepared on first use and kept.  It is found by the text's address, so the
    /// text must live as long as the program.  Owned by the connection.  Null on failure.
    SqlStatement* Kept(const char* text);

    /// Runs a statement to its end and forgets its values.  Returns the number of rows that it inserted,
    /// changed or removed itself (its triggers' not counted), or -1.
    int Run(SqlStatement& statement);

    /// Runs one statement, the same results; more than one in the text are refused.
    int Execute(std::string_view text);

    /// How long an operation waits for another program's lock.
    static constexpr int kLockWaitMs = 5000;
    void WaitForLocks(int ms);

    /// Runs all statements of `script`.
    bool ExecuteScript(const std::string& script);

    /// The rows of a query, or null on failure.
    std::unique_ptr<SqlRows> Query(std::string_view text);
    /// The same of a statement, whose values are then forgotten.
    std::unique_ptr<SqlRows> Query(SqlStatement& statement);

    /// The number in the first field of the first row of a query; -1 on failure.
    int64_t QueryNumber(std::string_view text);

    bool InTransaction() const;
    int64_t TotalChanges() const;  ///< rows changed since the connection was opened
    bool FileMoved() const;        ///< the file is no longer what its path names

    /// Whether another process has the database open; true when that cannot be told.
    bool HasCompany() const;

    /// Gives unused pages back, some at a time, so that other writers wait for none of it.  A database that
    /// was not made for that is rewritten once, as a whole.
    bool Vacuum();

    /// Puts the committed transactions of the write-ahead log on the disk, with the log's directory entry.
    bool SyncLog();

    /// Leaves the log as it is when the connection is closed: for a file that has moved, whose log's name may
    /// by now belong to another.
    void KeepLogOnClose();

    /// Makes `reason` the last failure, one for good; false.
    bool FailAs(const char* reason);

    const char* error() const { return error_.c_str(); }  ///< of the last failure
    bool FailedBusy() const;                              ///< the last failure was another writer's lock
    bool FailedByFile() const;                            ///< it lay in the file: damaged, unreadable
    /// It passes by itself: a lock, no room, a disk that does not answer.  Not so what is damaged, not
    /// permitted, or the statement's own fault.
    bool FailedForNow() const;

  private:
    explicit Sql(ChangeListener changed) : changed_(changed) { prepared_table_.reserve(kNameSize); }
    bool Configure();
    std::unique_ptr<SqlRows> ChooseLog();
    void Fail();
    static void Forget(SqlStatement& statement);
    std::unique_ptr<SqlStatement> Prepare(std::string_view text, unsigned flags);
    static int OnAuthorize(void* self, int action, const char* table, const char* column,
                           const char* database, const char* trigger);

    sqlite3* db_ = nullptr;
    std::string file_;
    ChangeListener changed_;
    std::unordered_map<const char*, std::unique_ptr<SqlStatement>> kept_;
    std::string prepared_table_;  // set by OnAuthorize while a statement is prepared
    std::string error_;
    int error_code_ = 0;
    static constexpr size_t kNameSize = 64;  // of our tables' names, at most
    int error_number_ = 0;                   // errno of the system call behind it, 0 = none
};

}  // namespace koli::host
