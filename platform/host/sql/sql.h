// What the databases' layer asks of an engine: a connection, its statements and the rows that they give.
//
// An engine implements the abstract classes of this file and of database_engine.h.  Texts are PostgreSQL's,
// with parameters ?1, ?2 ...; an engine that speaks otherwise translates them. Nothing here logs: a failed
// operation leaves its reason in Sql::failure().
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/host/sql/save_form.h"

namespace koli::host {

/// Why something has failed.
struct SqlFailure {
    std::string reason = {};  // in the engine's words; '' = nothing has failed
    bool is_lock = false;     // it was another program's lock
    bool is_damage = false;   // the database is damaged, or is none
    bool is_denied = false;   // this user may not read it
    bool is_of_file = false;  // what the connection stands on failed: it has to be opened anew
    bool is_missing = false;  // the statement names a table, or a schema, that there is not
    /// It passes by itself: a lock, no room, a disk that does not answer.  Not so what is damaged, not
    /// permitted, or the statement's own fault.
    bool passes = false;
};

/// A prepared statement: its parameters, which count from 1, and its rows, one after another.  Must end
/// before its connection.
class SqlStatement {
  public:
    virtual ~SqlStatement() = default;
    SqlStatement(const SqlStatement&) = delete;
    SqlStatement& operator=(const SqlStatement&) = delete;

    virtual void Text(int index, std::string_view value) = 0;  ///< any bytes; compared byte by byte; copied
    virtual void Integer(int index, int64_t value) = 0;
    virtual void Real(int index, double value) = 0;  ///< finite

    /// Fills the parameters from the first one on: texts and whole numbers.
    template <typename... Values>
    SqlStatement& Fill(const Values&... values) {
        int index = 0;
        (FillOne(++index, values), ...);
        return *this;
    }

    /// Moves to the next row.  False behind the last one and on a failure: the values are forgotten then.
    virtual bool Next() = 0;
    bool failed() const { return failed_; }  ///< the last Next; Sql::failure() tells why

    // Of the row:
    virtual int columns() const = 0;
    virtual const char* Name(int column) const = 0;        ///< columns count from 0
    virtual std::string_view Field(int column) const = 0;  ///< as text, "" for NULL; until the next Next
    virtual int64_t Number(int column) const = 0;          ///< as a whole number
    virtual double RealNumber(int column) const = 0;
    enum class Kind { kText, kInteger, kReal };
    virtual Kind KindOf(int column) const = 0;  ///< what the row holds there

    /// Forgets its values and what it holds of the database.
    virtual void Reset() = 0;

  protected:
    SqlStatement() = default;
    bool failed_ = false;

  private:
    template <typename Value>
    void FillOne(int index, const Value& value) {
        if constexpr (std::is_integral_v<Value>)
            Integer(index, static_cast<int64_t>(value));
        else
            Text(index, value);
    }
};

/// The rows of a query, held in memory.
class SqlRows {
  public:
    /// The rows that the statement has still to give; statement.failed() tells whether these are all.
    explicit SqlRows(SqlStatement& statement);

    int count() const { return count_; }
    /// The text of a field, "" for NULL; null when there is no such row or column.  Column names are compared
    /// without regard to case.  Valid as long as the rows.
    const char* Field(int row, const char* column) const;

  private:
    std::vector<std::string> columns_;
    std::vector<size_t> offsets_;  // where each field begins in text_, row by row
    std::string text_;             // all fields, each with its terminator
    int count_ = 0;
};

/// One connection.
class Sql {
  public:
    /// Told the table's name after each statement that changed rows of it.
    using ChangeListener = void (*)(const char* table);

    virtual ~Sql() = default;
    Sql(const Sql&) = delete;
    Sql& operator=(const Sql&) = delete;

    /// One statement; null on failure, also when the text holds more than one.
    std::unique_ptr<SqlStatement> Prepare(std::string_view text) { return Make(text, false); }
    /// The same, prepared on first use and kept for whoever brings the same text again.  Owned by the
    /// connection.
    SqlStatement* Kept(std::string_view text);
    /// The kept statement that saves a row of that form, which lives as long as the process.
    SqlStatement* KeptSave(const SaveForm& form);

    /// The kept query of the paths of `table` directly inside `folder` (its column `path`), in their order
    /// and filled in.  It reads nothing of what lies below the sub-folders, so that a tree costs what it
    /// holds, however deep it is.
    virtual SqlStatement* PathsInside(const char* table, const std::string& folder) = 0;

    /// What to order rows of `table` by, to have their paths in the order of their bytes.
    virtual const char* PathOrder(const char*) { return "path"; }

    /// Which of two paths comes first: below 0, 0 or above it.
    using Comparison = int (*)(std::string_view a, std::string_view b);
    /// The engine's own, of every connection.
    virtual Comparison PathComparison() const {
        return [](std::string_view a, std::string_view b) { return a.compare(b); };
    }

    /// How people order texts: `*key` gets bytes that compare as they would have it.
    using TextKey = void (*)(std::string_view text, std::string* key);
    /// What a query orders by so that the texts of `column` come in that order.  An engine that cannot call
    /// `key` has a term that comes to the same.  What is ordered need not fit into the memory.
    virtual std::string SortTerm(const std::string& column, TextKey key) = 0;

    /// Runs a statement to its end.  Returns the number of rows that it inserted, changed or removed itself
    /// (its triggers' not counted), or -1.
    virtual int Run(SqlStatement& statement) = 0;
    int Execute(std::string_view text);  ///< one statement, the same results

    /// The same for a kept statement in a transaction that nobody has to know the result of: an engine may
    /// put it off.  Whatever asks the connection anything finds it done.
    virtual int RunLater(SqlStatement& statement) { return Run(statement); }
    /// Does what has been put off.  False when that failed for a reason that passes; what fails for good
    /// concerns its own row and is told by TakeLost.
    virtual bool Settle() { return true; }
    /// Why rows that were put off have failed for good, each with its first parameter; told once.
    std::vector<std::string> TakeLost() { return std::exchange(lost_, {}); }

    /// The rows of a query, or null on failure.
    std::unique_ptr<SqlRows> Query(std::string_view text);
    std::unique_ptr<SqlRows> Query(SqlStatement& statement);

    /// The columns of a table in their order; none when there is no such table, and on failure.
    std::vector<std::string> Columns(std::string_view table);

    /// Begins a transaction that is going to write; COMMIT, ROLLBACK and savepoints are texts.
    virtual bool Begin() = 0;
    virtual bool InTransaction() const = 0;
    virtual int64_t TotalChanges() const = 0;  ///< rows changed since the connection was opened

    /// How long an operation waits for another program's lock: kLockWaitMs unless told otherwise.
    static constexpr int kLockWaitMs = 5000;
    virtual void WaitForLocks(int ms) = 0;

    /// Whether another process has the database open; true when that cannot be told.
    virtual bool HasCompany() const = 0;
    /// The database is no longer the one of that name.
    virtual bool IsTakenAway() const = 0;

    /// Bytes that are others once another process has changed the database, or put another one in its place.
    /// Those of one connection can be compared with those of another: nobody has to stay connected for them.
    /// Cheap.
    virtual std::string ChangeMark() = 0;
    /// Keeps little in memory from now on: for programs that read rows by their keys or one behind the other.
    virtual void SaveMemory() = 0;

    /// Makes what has been committed survive a power cut.
    virtual bool Harden() = 0;
    /// Gives unused room back, some at a time, so that other writers wait for none of it.  Returns 1, 0 when
    /// there is none, or -1.
    virtual int Vacuum() = 0;

    /// The last failure; of a connection that only reads, the first one.
    const SqlFailure& failure() const { return failure_; }

  protected:
    Sql() = default;
    virtual std::unique_ptr<SqlStatement> Make(std::string_view text, bool is_kept) = 0;
    virtual const char* ColumnsText() const = 0;  ///< the query of the columns' names of table ?1
    virtual std::string SaveText(const SaveForm& form) const = 0;
    void DropKept();  ///< before the connection is closed
    SqlFailure failure_;
    std::vector<std::string> lost_;

  private:
    /// Texts of a statement that saves a row are long, and differ where they begin.
    struct TextHash {
        using is_transparent = void;
        size_t operator()(std::string_view text) const {
            return std::hash<std::string_view>{}(text.substr(0, 64)) + text.size();
        }
    };
    std::unordered_map<std::string, std::unique_ptr<SqlStatement>, TextHash, std::equal_to<>> kept_;
    std::unordered_map<const SaveForm*, SqlStatement*> saves_;  // among them
};

}  // namespace koli::host
