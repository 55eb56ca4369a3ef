// One database's way from one engine to another (library_copy.h).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/host/library_copy.h"

namespace koli::host {

/// Stands in the target's table `setting` from the first row until the last one is there: which place is
/// being copied.
inline constexpr const char kCopyMark[] = "copied_from";

/// The tables of a database, those that others refer to first.
std::vector<const char*> TablesOf(int database);

/// Whatever fails leaves the reason in the result; what has been committed stays.
class DatabaseCopy {
  public:
    /// `to` writes the target, `to_read` reads it.
    DatabaseCopy(Sql& from, Sql& to, Sql& to_read, const CopyWatcher& watch, LibraryCopied* result)
        : from_(from), to_(to), to_read_(to_read), watch_(watch), result_(*result) {}

    bool Run(int database);

  private:
    bool Fail(const Sql& sql);
    bool CopyTable(const char* table);
    bool CopyByPath(const char* table, const std::string& select);
    bool CopyWhole(const char* table, const std::string& select);
    bool Merge(SqlStatement& source, SqlStatement& target);
    bool Insert(const SqlStatement& row);
    bool Remove(const SqlStatement& row);
    void AddLost(const std::string& line);
    bool Commit();
    bool CommitPiece();

    Sql& from_;
    Sql& to_;
    Sql& to_read_;
    const CopyWatcher& watch_;
    LibraryCopied& result_;
    CopiedTable* table_ = nullptr;  // at work
    SqlStatement* insert_ = nullptr;
    SqlStatement* remove_ = nullptr;
};

}  // namespace koli::host
