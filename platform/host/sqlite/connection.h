// A connection to an SQLite file.
#pragma once

#include <string>

#include "platform/host/sql/sql.h"

struct sqlite3;
struct sqlite3_context;
struct sqlite3_stmt;
struct sqlite3_value;

namespace koli::host {

/// With a write-ahead log, a cache of 2 MB and LIKE that heeds case, unless it was opened to read.
class Sqlite final : public Sql {
  public:
    /// Opens `file`, which is created when it is missing (its directory is not).  Null when that fails: no
    /// permission, not a database, busy.
    static std::unique_ptr<Sqlite> Open(const std::string& file, ChangeListener changed, SqlFailure* failure);

    /// Opens an existing file that another process may write.  It creates and changes nothing, and never
    /// keeps a writer from writing.
    static std::unique_ptr<Sqlite> OpenToRead(const std::string& file, SqlFailure* failure);
    ~Sqlite() override;

    SqlStatement* PathsInside(const char* table, const std::string& folder) override;
    std::string SortTerm(const std::string& column, TextKey key) override;
    int Run(SqlStatement& statement) override;
    bool Begin() override { return Execute("BEGIN IMMEDIATE") >= 0; }
    bool InTransaction() const override;
    int64_t TotalChanges() const override;
    void WaitForLocks(int ms) override;
    bool HasCompany() const override;
    bool IsTakenAway() const override;
    std::string ChangeMark() override;
    void SaveMemory() override;
    bool Harden() override;
    int Vacuum() override;

    /// Runs all statements of `script`, as they stand there.
    bool ExecuteScript(const std::string& script);
    /// The number in the first field of the first row of a query; -1 on failure.
    int64_t QueryNumber(std::string_view text);

    /// Leaves the log as it is when the connection is closed.
    void KeepLogOnClose();

    /// Makes `reason` the last failure; false.  `number` is the errno behind it.
    bool FailAs(const char* reason, int number);

  private:
    friend class SqliteStatement;
    explicit Sqlite(ChangeListener changed) : changed_(changed) { prepared_table_.reserve(kNameSize); }
    std::unique_ptr<SqlStatement> Make(std::string_view text, bool is_kept) override;
    const char* ColumnsText() const override;
    std::string SaveText(const SaveForm& form) const override;
    bool Connect(const std::string& name, int flags);
    bool Configure();
    bool ConnectToRead(const std::string& name);
    std::unique_ptr<SqlRows> ChooseLog();
    void Fail();
    void FailWith(int code, const char* reason, int number);
    static int OnAuthorize(void* self, int action, const char* table, const char* column,
                           const char* database, const char* trigger);
    static void OnSortKey(sqlite3_context* call, int count, sqlite3_value** values);

    sqlite3* db_ = nullptr;
    std::string file_;
    ChangeListener changed_;
    bool is_reader_ = false;
    TextKey sort_key_ = nullptr;
    std::string prepared_table_;             // set by OnAuthorize while a statement is prepared
    static constexpr size_t kNameSize = 64;  // of our tables' names, at most
};

}  // namespace koli::host
