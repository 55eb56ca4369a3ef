#include "platform/host/sql_reader.h"

#include <sqlite3.h>
#include <unistd.h>

#include <cctype>
#include <climits>

namespace koli::host {
namespace {

constexpr int kBusyTimeoutMs = 5000;

/// The file as an SQLite URI that promises that nobody writes it.
std::string ImmutableName(const std::string& file) {
    constexpr std::string_view kPlain = "/.-_";
    constexpr const char kHex[] = "0123456789ABCDEF";
    std::string name = "file:";
    for (const char c : file) {
        const auto byte = static_cast<unsigned char>(c);
        const bool is_plain = (byte < 0x80 && isalnum(byte) != 0) || kPlain.find(c) != std::string_view::npos;
        if (is_plain)
            name += c;
        else
            name.append("%").append(1, kHex[byte >> 4]).append(1, kHex[byte & 15]);
    }
    return name + "?immutable=1";
}

SqlReader::Failure FailureOf(int code) {
    switch (code & 0xFF) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
        case SQLITE_PROTOCOL:
            return SqlReader::Failure::kLocked;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
        case SQLITE_FORMAT:
            return SqlReader::Failure::kDamaged;
        default:
            return SqlReader::Failure::kOther;
    }
}

}  // namespace

// ---- SqlCursor

SqlCursor::SqlCursor(SqlReader& reader, sqlite3_stmt* handle)
    : reader_(reader), handle_(handle), columns_(sqlite3_column_count(handle)) {}

SqlCursor::~SqlCursor() {
    sqlite3_finalize(handle_);
}

void SqlCursor::Text(int index, std::string_view value) {
    // A null pointer would bind NULL.
    sqlite3_bind_text64(handle_, index, value.data() != nullptr ? value.data() : "", value.size(),
                        SQLITE_TRANSIENT, SQLITE_UTF8);
}

void SqlCursor::Integer(int index, int64_t value) {
    sqlite3_bind_int64(handle_, index, value);
}

bool SqlCursor::Next() {
    const int code = sqlite3_step(handle_);
    if (code != SQLITE_ROW && code != SQLITE_DONE) reader_.Fail();
    return code == SQLITE_ROW;
}

const char* SqlCursor::Name(int column) const {
    return sqlite3_column_name(handle_, column);
}

std::string_view SqlCursor::Field(int column) const {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(handle_, column));
    return text != nullptr
               ? std::string_view(text, static_cast<size_t>(sqlite3_column_bytes(handle_, column)))
               : std::string_view("");
}

int64_t SqlCursor::Number(int column) const {
    return sqlite3_column_int64(handle_, column);
}

double SqlCursor::Real(int column) const {
    return sqlite3_column_double(handle_, column);
}

SqlCursor::Kind SqlCursor::KindOf(int column) const {
    switch (sqlite3_column_type(handle_, column)) {
        case SQLITE_INTEGER:
            return Kind::kInteger;
        case SQLITE_FLOAT:
            return Kind::kReal;
        default:
            return Kind::kText;
    }
}

// ---- SqlReader

bool SqlReader::OpenName(const std::string& name) {
    sqlite3_close(db_);
    db_ = nullptr;
    error_.clear();
    failure_ = Failure::kNone;
    constexpr int kFlags = SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX;
    if (sqlite3_open_v2(name.c_str(), &db_, kFlags, nullptr) != SQLITE_OK) {
        Fail();
        return false;
    }
    sqlite3_busy_timeout(db_, kBusyTimeoutMs);
    sqlite3_db_config(db_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(db_, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    // Only a read shows whether it is a database.
    const std::unique_ptr<SqlCursor> schema = Query("SELECT count(*) FROM sqlite_schema");
    return schema != nullptr && schema->Next();
}

std::unique_ptr<SqlReader> SqlReader::Open(const std::string& file, std::string* error, Failure* failure) {
    std::unique_ptr<SqlReader> reader(new SqlReader);
    if (reader->OpenName(file)) return reader;
    // Whoever may not write to the directory cannot read a database with a write-ahead log that nobody has
    // open.  When there is no such log, the file itself holds everything.
    const bool has_log = access((file + "-wal").c_str(), F_OK) == 0;
    if (!has_log && access(file.c_str(), R_OK) == 0 && reader->OpenName(ImmutableName(file))) return reader;
    *error = reader->error_;
    if (failure != nullptr) *failure = reader->failure_;
    return nullptr;
}

SqlReader::~SqlReader() {
    sqlite3_close(db_);
}

std::unique_ptr<SqlCursor> SqlReader::Query(std::string_view text) {
    sqlite3_stmt* handle = nullptr;
    if (text.size() > INT_MAX ||
        sqlite3_prepare_v2(db_, text.data(), static_cast<int>(text.size()), &handle, nullptr) != SQLITE_OK) {
        Fail();
        return nullptr;
    }
    return std::unique_ptr<SqlCursor>(new SqlCursor(*this, handle));
}

bool SqlReader::HasTable(const char* name) {
    const std::unique_ptr<SqlCursor> found =
        Query("SELECT 1 FROM sqlite_schema WHERE type = 'table' AND name = ?1");
    if (found == nullptr) return false;
    found->Text(1, name);
    return found->Next();
}

void SqlReader::Fail() {
    if (!error_.empty()) return;
    error_ = db_ != nullptr ? sqlite3_errmsg(db_) : "out of memory";
    failure_ = FailureOf(db_ != nullptr ? sqlite3_errcode(db_) : SQLITE_NOMEM);
}

}  // namespace koli::host
