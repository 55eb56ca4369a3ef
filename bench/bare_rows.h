// The least that a database asks for a file: one row of 31 columns by a prepared upsert, 100 rows a
// transaction.
#pragma once

#include <string>

struct sqlite3;
struct sqlite3_stmt;

namespace koli::bench {

/// A table in a new file, write-ahead log and synchronous=NORMAL.
class BareRows {
  public:
    explicit BareRows(const std::string& file);
    ~BareRows();
    BareRows(const BareRows&) = delete;
    BareRows& operator=(const BareRows&) = delete;

    void Upsert(const std::string& path);
    void Commit();  ///< the rows since the last full hundred

  private:
    void Execute(const char* sql);

    sqlite3* db_ = nullptr;
    sqlite3_stmt* statement_ = nullptr;
    long count_ = 0;
};

}  // namespace koli::bench
