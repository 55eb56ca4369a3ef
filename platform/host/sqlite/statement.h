// A statement of an SQLite connection.
#pragma once

#include <sqlite3.h>

#include <string>
#include <utility>

#include "platform/host/sqlite/connection.h"
#include "platform/host/sqlite/system_calls.h"

namespace koli::host {

/// Its rows are read as they are asked for.
class SqliteStatement final : public SqlStatement {
  public:
    SqliteStatement(Sqlite& owner, sqlite3_stmt* handle, std::string table)
        : owner_(owner), handle_(handle), table_(std::move(table)) {}
    ~SqliteStatement() override { sqlite3_finalize(handle_); }

    void Text(int index, std::string_view value) override {
        // A null pointer would bind NULL.
        sqlite3_bind_text64(handle_, index, value.data() != nullptr ? value.data() : "", value.size(),
                            SQLITE_TRANSIENT, SQLITE_UTF8);
    }
    void Integer(int index, int64_t value) override { sqlite3_bind_int64(handle_, index, value); }
    void Real(int index, double value) override { sqlite3_bind_double(handle_, index, value); }

    bool Next() override {
        ForgetReadError();
        const int code = sqlite3_step(handle_);
        if (code == SQLITE_ROW) return true;
        failed_ = code != SQLITE_DONE;
        if (failed_) owner_.Fail();
        Reset();
        return false;
    }
    int columns() const override { return sqlite3_column_count(handle_); }
    const char* Name(int column) const override { return sqlite3_column_name(handle_, column); }
    std::string_view Field(int column) const override {
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(handle_, column));
        if (text == nullptr) return "";
        return {text, static_cast<size_t>(sqlite3_column_bytes(handle_, column))};
    }
    int64_t Number(int column) const override { return sqlite3_column_int64(handle_, column); }
    double RealNumber(int column) const override { return sqlite3_column_double(handle_, column); }
    Kind KindOf(int column) const override {
        const int type = sqlite3_column_type(handle_, column);
        return type == SQLITE_INTEGER ? Kind::kInteger : type == SQLITE_FLOAT ? Kind::kReal : Kind::kText;
    }
    void Reset() override {
        sqlite3_reset(handle_);
        sqlite3_clear_bindings(handle_);
    }

    const char* table() const { return table_.c_str(); }

  private:
    Sqlite& owner_;
    sqlite3_stmt* handle_;
    std::string table_;  // the table that it changes, '' = none
};

}  // namespace koli::host
