#include "bench/bare_rows.h"

#include <sqlite3.h>
#include <unistd.h>

#include "bench/measure.h"

namespace koli::bench {
namespace {

constexpr int kColumns = 31;
constexpr long kRowsPerTransaction = 100;

}  // namespace

BareRows::BareRows(const std::string& file) {
    for (const char* suffix : {"", "-wal", "-shm"})
        unlink((file + suffix).c_str());
    if (sqlite3_open(file.c_str(), &db_) != SQLITE_OK) Fail(file.c_str());
    std::string columns = "path TEXT PRIMARY KEY", marks = "?", set;
    for (int i = 1; i < kColumns; ++i) {
        const std::string name = "c" + std::to_string(i);
        columns += ", " + name;
        marks += ",?";
        set += (i > 1 ? "," : "") + name + "=excluded." + name;
    }
    Execute("PRAGMA journal_mode=WAL");
    Execute("PRAGMA synchronous=NORMAL");
    Execute(("CREATE TABLE media(" + columns + ")").c_str());
    const std::string upsert =
        "INSERT INTO media VALUES(" + marks + ") ON CONFLICT(path) DO UPDATE SET " + set;
    if (sqlite3_prepare_v2(db_, upsert.c_str(), -1, &statement_, nullptr) != SQLITE_OK) Fail("prepare");
}

BareRows::~BareRows() {
    sqlite3_finalize(statement_);
    sqlite3_close(db_);
}

void BareRows::Upsert(const std::string& path) {
    if (count_ % kRowsPerTransaction == 0) Execute("BEGIN IMMEDIATE");
    sqlite3_bind_text(statement_, 1, path.c_str(), -1, SQLITE_STATIC);
    for (int i = 2; i <= kColumns; ++i) {
        if (i % 2 == 0)
            sqlite3_bind_text(statement_, i, "A text of usual length", -1, SQLITE_STATIC);
        else
            sqlite3_bind_int64(statement_, i, count_ * i);
    }
    if (sqlite3_step(statement_) != SQLITE_DONE) Fail("upsert");
    sqlite3_reset(statement_);
    if (++count_ % kRowsPerTransaction == 0) Execute("COMMIT");
}

void BareRows::Commit() {
    if (count_ % kRowsPerTransaction != 0) Execute("COMMIT");
}

void BareRows::Execute(const char* sql) {
    if (sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) Fail(sql);
}

}  // namespace koli::bench
