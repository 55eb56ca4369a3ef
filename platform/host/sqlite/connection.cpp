#include "platform/host/sqlite/connection.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <utility>

#include "base/passing_error.h"
#include "platform/host/sqlite/dialect.h"
#include "platform/host/sqlite/file_privacy.h"
#include "platform/host/sqlite/folder_rows.h"
#include "platform/host/sqlite/statement.h"
#include "platform/host/sqlite/system_calls.h"

namespace koli::host {

namespace {

constexpr int kLogPauseMs = 5;
constexpr int kSyncAttempts = 2;
constexpr mode_t kDatabaseMode = 0640;

constexpr const char kCountUnused[] = "PRAGMA freelist_count";

// The log is cut back to 8 MiB once a reader or a large transaction has let it grow.
constexpr const char kSettings[] =
    "PRAGMA cache_size=-512;"
    "PRAGMA case_sensitive_like=ON;"
    "PRAGMA journal_size_limit=8388608;"
    "PRAGMA cell_size_check=ON;"
    "PRAGMA trusted_schema=OFF;";

/// Makes a new database for its owner and the directory's group; its logs get owner, group and mode from it.
void CreateForGroup(const std::string& file) {
    if (!file.starts_with('/')) return;  // ":memory:"
    const int fd = open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kDatabaseMode);
    if (fd >= 0) close(fd);
    KeepFromOthers(file);
}

bool IsOnlyBlank(const char* text, const char* end) {
    while (text != end && strchr(" \t\r\n;", *text) != nullptr)
        ++text;
    return text == end;
}

/// The file as a URI that promises that nobody writes it.
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

bool Passes(int code, int number) {
    switch (code) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
        case SQLITE_PROTOCOL:
        case SQLITE_FULL:
        case SQLITE_IOERR:
        case SQLITE_NOMEM:
        case SQLITE_INTERRUPT:
            return true;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
        case SQLITE_CANTOPEN:
        case SQLITE_READONLY:
            return number != 0 && IsPassingError(number);
        default:
            return false;
    }
}

}  // namespace

// ---- Opening and closing

bool Sqlite::Connect(const std::string& name, int flags) {
    sqlite3_close(std::exchange(db_, nullptr));
    failure_ = {};
    if (sqlite3_open_v2(name.c_str(), &db_, flags | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK) {
        Fail();
        return false;
    }
    WaitForLocks(kLockWaitMs);
    sqlite3_db_config(db_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    return true;
}

std::unique_ptr<Sqlite> Sqlite::Open(const std::string& file, ChangeListener changed, SqlFailure* failure) {
    TakeOverSystemCalls();
    ForgetReadError();
    std::unique_ptr<Sqlite> sql(new Sqlite(changed));
    sql->file_ = file;
    CreateForGroup(file);
    if (sql->Connect(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)) {
        // Without permission to write the engine falls back to reading.
        if (sqlite3_db_readonly(sql->db_, "main") != 0)
            sql->FailAs("no permission to write", access(file.c_str(), W_OK) != 0 ? errno : EACCES);
        else if (sql->Configure())
            return sql;
    }
    *failure = sql->failure_;
    return nullptr;
}

bool Sqlite::Configure() {
    // "..." is an identifier and nothing else.
    sqlite3_db_config(db_, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
    sqlite3_db_config(db_, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
    sqlite3_set_authorizer(db_, OnAuthorize, this);

    // Only a file without a page can be given this; over any other the statement would wait for its writer.
    if (QueryNumber("PRAGMA page_count") == 0 && !ExecuteScript("PRAGMA auto_vacuum=INCREMENTAL"))
        return false;
    const std::unique_ptr<SqlRows> mode = ChooseLog();
    if (mode == nullptr || mode->count() == 0) return false;
    // A file system that cannot share memory between processes has no write-ahead log: Harden has nothing to
    // do there, so every commit must be durable by itself, the removal of its journal included.
    const bool has_log = strcmp(mode->Field(0, "journal_mode"), "wal") == 0;
    return ExecuteScript(kSettings) &&
           ExecuteScript(has_log ? "PRAGMA synchronous=NORMAL" : "PRAGMA synchronous=EXTRA");
}

/// Two programs that give a new file its log at the same time can each hold what the other needs: then one of
/// them fails at once instead of waiting, and tries again.
std::unique_ptr<SqlRows> Sqlite::ChooseLog() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kLockWaitMs);
    for (;;) {
        std::unique_ptr<SqlRows> mode = Query("PRAGMA journal_mode=WAL");
        if (mode != nullptr || !failure_.is_lock || std::chrono::steady_clock::now() >= end) return mode;
        sqlite3_sleep(kLogPauseMs);
    }
}

bool Sqlite::ConnectToRead(const std::string& name) {
    if (!Connect(name, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI)) return false;
    sqlite3_db_config(db_, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    // Only a read shows whether it is a database.
    return Query("SELECT count(*) FROM sqlite_schema") != nullptr;
}

std::unique_ptr<Sqlite> Sqlite::OpenToRead(const std::string& file, SqlFailure* failure) {
    std::unique_ptr<Sqlite> sql(new Sqlite(nullptr));
    sql->is_reader_ = true;
    sql->file_ = file;
    if (sql->ConnectToRead(file)) return sql;
    // Whoever may not write to the directory cannot read a database with a write-ahead log that nobody has
    // open.  When there is no such log, the file itself holds everything.
    const bool has_log = access((file + "-wal").c_str(), F_OK) == 0;
    if (!has_log && access(file.c_str(), R_OK) == 0 && sql->ConnectToRead(ImmutableName(file))) return sql;
    *failure = sql->failure_;
    return nullptr;
}

/// The log of a file that has moved stays as it is: its name may by now belong to another.
Sqlite::~Sqlite() {
    DropKept();
    if (!is_reader_ && db_ != nullptr && IsTakenAway()) KeepLogOnClose();
    sqlite3_close(db_);
}

void Sqlite::KeepLogOnClose() {
    sqlite3_db_config(db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

void Sqlite::WaitForLocks(int ms) {
    sqlite3_busy_timeout(db_, ms);
}

// ---- Statements

/// Called while a statement is prepared, once for each thing that it will do; notes the table that it
/// changes.  Nothing may be thrown through the engine.
int Sqlite::OnAuthorize(void* self, int action, const char* table, const char*, const char*,
                        const char* trigger) try {
    const bool changes = action == SQLITE_INSERT || action == SQLITE_UPDATE || action == SQLITE_DELETE;
    if (changes && trigger == nullptr && table != nullptr)
        static_cast<Sqlite*>(self)->prepared_table_ = table;
    return SQLITE_OK;
} catch (const std::bad_alloc&) {
    return SQLITE_DENY;
}

std::unique_ptr<SqlStatement> Sqlite::Make(std::string_view text, bool is_kept) {
    const std::string own = ToSqliteText(text);
    prepared_table_.clear();
    ForgetReadError();
    sqlite3_stmt* handle = nullptr;
    const char* tail = nullptr;
    if (own.size() > INT_MAX ||
        sqlite3_prepare_v3(db_, own.data(), static_cast<int>(own.size()),
                           is_kept ? SQLITE_PREPARE_PERSISTENT : 0, &handle, &tail) != SQLITE_OK) {
        Fail();
        return nullptr;
    }
    std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> owner(handle, &sqlite3_finalize);
    auto statement = std::make_unique<SqliteStatement>(*this, handle, prepared_table_);
    static_cast<void>(owner.release());  // the statement's now
    if (handle != nullptr && IsOnlyBlank(tail, own.data() + own.size())) return statement;
    FailWith(SQLITE_MISUSE, handle == nullptr ? "no statement" : "more than one statement", 0);
    return nullptr;
}

SqlStatement* Sqlite::PathsInside(const char* table, const std::string& folder) {
    SqlStatement* const query = Kept(FolderRowsText(table));
    // '0' follows '/'; the last one is where what follows "FOLDER/" begins.
    return query != nullptr ? &query->Fill(folder + '/', folder + '0', folder.size() + 2) : nullptr;
}

std::string Sqlite::SortTerm(const std::string& column, TextKey key) {
    sort_key_ = key;
    sqlite3_create_function_v2(db_, "sort_key", 1, SQLITE_UTF8 | SQLITE_DETERMINISTIC, this, OnSortKey,
                               nullptr, nullptr, nullptr);
    return "sort_key(" + column + ")";
}

/// Nothing may be thrown through the engine.
void Sqlite::OnSortKey(sqlite3_context* call, int, sqlite3_value** values) try {
    const auto* self = static_cast<const Sqlite*>(sqlite3_user_data(call));
    const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(values[0]));
    const auto length = static_cast<size_t>(sqlite3_value_bytes(values[0]));
    std::string key;
    self->sort_key_(text != nullptr ? std::string_view(text, length) : "", &key);
    sqlite3_result_text64(call, key.data(), key.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
} catch (const std::bad_alloc&) {
    sqlite3_result_error_nomem(call);
}

const char* Sqlite::ColumnsText() const {
    return "SELECT name FROM pragma_table_info(?1)";
}

std::string Sqlite::SaveText(const SaveForm& form) const {
    return UpsertText(form, "VALUES (" + SaveParameters(form) + ")");
}

int Sqlite::Run(SqlStatement& statement) {
    const int64_t before = TotalChanges();
    while (statement.Next()) {
    }
    if (statement.failed()) return -1;

    // sqlite3_changes would repeat the count of an earlier statement.
    if (TotalChanges() == before) return 0;
    const int affected = sqlite3_changes(db_);
    if (affected > 0 && changed_ != nullptr) changed_(static_cast<SqliteStatement&>(statement).table());
    return affected;
}

bool Sqlite::ExecuteScript(const std::string& script) {
    ForgetReadError();
    if (sqlite3_exec(db_, script.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK) return true;
    Fail();
    return false;
}

int64_t Sqlite::QueryNumber(std::string_view text) {
    const std::unique_ptr<SqlStatement> query = Prepare(text);
    return query != nullptr && query->Next() ? query->Number(0) : -1;
}

// ---- State

bool Sqlite::InTransaction() const {
    return sqlite3_get_autocommit(db_) == 0;
}

int64_t Sqlite::TotalChanges() const {
    return sqlite3_total_changes64(db_);
}

bool Sqlite::IsTakenAway() const {
    int moved = 0;
    return sqlite3_file_control(db_, "main", SQLITE_FCNTL_HAS_MOVED, &moved) == SQLITE_OK && moved != 0;
}

/// Every connection holds a lock on its log's index as long as it lives.  Asking for that lock would mean to
/// open and close the index, which would drop the locks that this process holds on it: so the kernel's list
/// is read.
bool Sqlite::HasCompany() const {
    struct stat status;
    const std::unique_ptr<FILE, decltype(&fclose)> locks(fopen("/proc/locks", "re"), &fclose);
    if (locks == nullptr || stat((file_ + "-shm").c_str(), &status) != 0) return true;
    const auto known = [](uint64_t number) { return static_cast<uint32_t>(number); };  // to 32-bit kernels
    char line[256];
    while (fgets(line, sizeof line, locks.get()) != nullptr) {
        // "1: POSIX  ADVISORY  READ 4711 fd:01:262157 128 128"
        const char* word[6] = {};
        char* rest = nullptr;
        for (size_t i = 0; i < std::size(word); ++i)
            word[i] = strtok_r(i == 0 ? line : nullptr, " ", &rest);
        const char* inode = word[5] != nullptr ? strrchr(word[5], ':') : nullptr;
        if (inode != nullptr && known(strtoull(inode + 1, nullptr, 10)) == known(status.st_ino) &&
            strtol(word[4], nullptr, 10) != getpid())
            return true;
    }
    return false;
}

bool Sqlite::Harden() {
    // The engine's own descriptor: opening and closing a database file here would drop the locks that this
    // process holds on it.  The first sync of a log also syncs its directory.
    sqlite3_file* log = nullptr;
    sqlite3_file_control(db_, "main", SQLITE_FCNTL_JOURNAL_POINTER, static_cast<void*>(&log));
    if (log == nullptr || log->pMethods == nullptr) return true;
    int code = SQLITE_OK;
    for (int attempt = 0; attempt < kSyncAttempts; ++attempt) {
        code = log->pMethods->xSync(log, SQLITE_SYNC_NORMAL | SQLITE_SYNC_DATAONLY);
        if (code == SQLITE_OK) return true;
    }
    FailWith(code, sqlite3_errstr(code), 0);
    return false;
}

int Sqlite::Vacuum() {
    // Some hundred pages are moved in a few milliseconds.
    constexpr const char kStep[] = "PRAGMA incremental_vacuum(512)";
    constexpr int64_t kIncremental = 2;
    int64_t before = 0, unused = QueryNumber(kCountUnused);
    if (unused == 0) return 0;
    if (QueryNumber("PRAGMA auto_vacuum") != kIncremental) {
        // It was not made for that: it is rewritten once, as a whole.
        if (unused < 0 || Execute("PRAGMA auto_vacuum=INCREMENTAL") < 0 || Execute("VACUUM") < 0) return -1;
    } else {
        while (unused > 0 && unused != before) {
            if (Query(kStep) == nullptr) return -1;
            before = std::exchange(unused, QueryNumber(kCountUnused));
        }
        if (unused < 0) return -1;
    }
    Query("PRAGMA wal_checkpoint(TRUNCATE)");  // a reader may delay it: later then
    return 1;
}

// ---- Failures

void Sqlite::Fail() {
    const int code = db_ != nullptr ? sqlite3_errcode(db_) : SQLITE_NOMEM;
    const bool is_damage = code == SQLITE_CORRUPT || code == SQLITE_NOTADB;
    std::string reason = db_ != nullptr ? sqlite3_errmsg(db_) : "out of memory";
    int number = db_ != nullptr ? sqlite3_system_errno(db_) : ENOMEM;
    if (is_damage && !is_reader_) {
        number = ReadError();
        if (number != 0) reason = std::string("the file could not be read: ") + strerror(number);
    }
    FailWith(code, reason.c_str(), number);
}

void Sqlite::FailWith(int code, const char* reason, int number) {
    if (is_reader_ && !failure_.reason.empty()) return;
    const bool is_damage = code == SQLITE_CORRUPT || code == SQLITE_NOTADB || code == SQLITE_FORMAT;
    failure_ = {
        .reason = reason,
        .is_lock = code == SQLITE_BUSY || code == SQLITE_LOCKED || code == SQLITE_PROTOCOL,
        .is_damage = is_damage,
        .is_of_file = is_damage || code == SQLITE_IOERR || code == SQLITE_CANTOPEN || code == SQLITE_READONLY,
        .passes = Passes(code, number)};
}

bool Sqlite::FailAs(const char* reason, int number) {
    FailWith(SQLITE_READONLY, reason, number);
    return false;
}

}  // namespace koli::host
