// Looking at a database that another process writes: read-only, row by row.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace koli::host {

class SqlReader;

/// The rows of a query, one after another.  Must end before its reader.
class SqlCursor {
  public:
    ~SqlCursor();
    SqlCursor(const SqlCursor&) = delete;
    SqlCursor& operator=(const SqlCursor&) = delete;

    /// Fill a parameter, counted from 1, before the first Next.  Values are copied.
    void Text(int index, std::string_view value);
    void Integer(int index, int64_t value);

    /// Moves to the next row.  False behind the last one and on a failure, which SqlReader::failed() tells.
    bool Next();

    int columns() const { return columns_; }
    const char* Name(int column) const;        ///< columns count from 0
    std::string_view Field(int column) const;  ///< as text; valid until the next call for that column
    int64_t Number(int column) const;          ///< as a whole number
    double Real(int column) const;             ///< as a number
    enum class Kind { kText, kInteger, kReal };
    Kind KindOf(int column) const;  ///< what the row holds there

  private:
    friend class SqlReader;
    SqlCursor(SqlReader& reader, sqlite3_stmt* handle);
    SqlReader& reader_;
    sqlite3_stmt* handle_;
    int columns_;
};

/// One read-only connection.  It creates and changes nothing, and never keeps a writer from writing.
class SqlReader {
  public:
    /// What kind of failure it was.
    enum class Failure { kNone, kLocked, kDamaged, kOther };

    /// Opens an existing file.  Null when that fails, with the reason in `*error` and, when it is not null,
    /// its kind in `*failure`.
    static std::unique_ptr<SqlReader> Open(const std::string& file, std::string* error,
                                           Failure* failure = nullptr);
    ~SqlReader();
    SqlReader(const SqlReader&) = delete;
    SqlReader& operator=(const SqlReader&) = delete;

    /// The rows of a query; null on failure.
    std::unique_ptr<SqlCursor> Query(std::string_view text);

    /// Whether there is a table of that name; false also on failure.
    bool HasTable(const char* name);

    bool failed() const { return !error_.empty(); }      ///< something has failed since it was opened
    const std::string& error() const { return error_; }  ///< the first failure; '' = none
    Failure failure() const { return failure_; }         ///< its kind

  private:
    friend class SqlCursor;
    SqlReader() = default;
    bool OpenName(const std::string& name);
    void Fail();

    sqlite3* db_ = nullptr;
    std::string error_;
    Failure failure_ = Failure::kNone;
};

}  // namespace koli::host
