#include "platform/host/sql.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <strings.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

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
#include "platform/host/file_privacy.h"

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

/// mmap() for the engine: the write-ahead log's index is shared memory, and a child that is taken over by
/// what it reads must not find it in its address space.
void* MapForThisProcessOnly(void* address, size_t size, int protection, int flags, int file, off_t offset) {
    void* area = mmap(address, size, protection, flags, file, offset);
    if (area != MAP_FAILED) madvise(area, size, MADV_DONTFORK);
    return area;
}

int read_error = 0;  // errno of the last read that failed; set to 0 before each statement

/// pread() for the engine, which takes a disk that does not answer for a damaged file.
ssize_t ReadAndNote(int file, void* bytes, size_t length, off_t offset) {
    const ssize_t count = pread(file, bytes, length, offset);
    if (count < 0 && errno != EINTR) read_error = errno;
    return count;
}

void TakeOverSystemCalls() {
    sqlite3_vfs* files = sqlite3_vfs_find(nullptr);
    if (files == nullptr || files->iVersion < 3) return;
    files->xSetSystemCall(files, "mmap", reinterpret_cast<sqlite3_syscall_ptr>(MapForThisProcessOnly));
    for (const char* name : {"pread", "pread64"})
        if (files->xGetSystemCall(files, name) != nullptr)
            files->xSetSystemCall(files, name, reinterpret_cast<sqlite3_syscall_ptr>(ReadAndNote));
}

bool IsOnlyBlank(const char* text, const char* end) {
    while (text != end && strchr(" \t\r\n;", *text) != nullptr)
        ++text;
    return text == end;
}

}  // namespace

// ---- SqlRows, SqlStatement

const char* SqlRows::Field(int row, const char* column) const {
    if (row < 0 || row >= count_ || column == nullptr) return nullptr;
    for (size_t i = 0; i < columns_.size(); ++i)
        if (strcasecmp(columns_[i].c_str(), column) == 0)
            return text_.c_str() + offsets_[static_cast<size_t>(row) * columns_.size() + i];
    return nullptr;
}

SqlStatement::~SqlStatement() {
    sqlite3_finalize(handle_);
}

void SqlStatement::Text(int index, std::string_view value) {
    // A null pointer would bind NULL.
    sqlite3_bind_text64(handle_, index, value.data() != nullptr ? value.data() : "", value.size(),
                        SQLITE_TRANSIENT, SQLITE_UTF8);
}

void SqlStatement::Integer(int index, int64_t value) {
    sqlite3_bind_int64(handle_, index, value);
}

void SqlStatement::Real(int index, double value) {
    sqlite3_bind_double(handle_, index, value);
}

// ---- Opening and closing

std::unique_ptr<Sql> Sql::Open(const std::string& file, ChangeListener changed, std::string* error,
                               bool* passes) {
    TakeOverSystemCalls();
    read_error = 0;
    std::unique_ptr<Sql> sql(new Sql(changed));
    sql->file_ = file;
    CreateForGroup(file);
    constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    if (sqlite3_open_v2(file.c_str(), &sql->db_, kFlags, nullptr) != SQLITE_OK) {
        sql->Fail();
    } else if (sqlite3_db_readonly(sql->db_, "main") != 0) {
        // Without permission to write the engine falls back to reading.
        sql->FailAs("no permission to write");
        sql->error_number_ = access(file.c_str(), W_OK) != 0 ? errno : EACCES;
    } else if (sql->Configure()) {
        return sql;
    }
    *error = sql->error_;
    if (passes != nullptr) *passes = sql->FailedForNow();
    return nullptr;
}

bool Sql::Configure() {
    WaitForLocks(kLockWaitMs);
    sqlite3_db_config(db_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    // "..." is an identifier and nothing else.
    sqlite3_db_config(db_, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
    sqlite3_db_config(db_, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
    sqlite3_set_authorizer(db_, OnAuthorize, this);

    // Only a file without a page can be given this; over any other the statement would wait for its writer.
    if (QueryNumber("PRAGMA page_count") == 0 && !ExecuteScript("PRAGMA auto_vacuum=INCREMENTAL"))
        return false;
    const std::unique_ptr<SqlRows> mode = ChooseLog();
    if (mode == nullptr || mode->count() == 0) return false;
    // A file system that cannot share memory between processes has no write-ahead log: SyncLog has nothing to
    // do there, so every commit must be durable by itself, the removal of its journal included.
    const bool has_log = strcmp(mode->Field(0, "journal_mode"), "wal") == 0;
    return ExecuteScript(kSettings) &&
           ExecuteScript(has_log ? "PRAGMA synchronous=NORMAL" : "PRAGMA synchronous=EXTRA");
}

/// Two programs that give a new file its log at the same time can each hold what the other needs: then one of
/// them fails at once instead of waiting, and tries again.
std::unique_ptr<SqlRows> Sql::ChooseLog() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kLockWaitMs);
    for (;;) {
        std::unique_ptr<SqlRows> mode = Query("PRAGMA journal_mode=WAL");
        if (mode != nullptr || !FailedBusy() || std::chrono::steady_clock::now() >= end) return mode;
        sqlite3_sleep(kLogPauseMs);
    }
}

Sql::~Sql() {
    kept_.clear();
    sqlite3_close(db_);
}

void Sql::KeepLogOnClose() {
    sqlite3_db_config(db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

void Sql::WaitForLocks(int ms) {
    sqlite3_busy_timeout(db_, ms);
}

// ---- Statements

/// Called while a statement is prepared, once for each thing that it will do; notes the table that it
/// changes.  Nothing may be thrown through the engine.
int Sql::OnAuthorize(void* self, int action, const char* table, const char*, const char*,
                     const char* trigger) try {
    const bool changes = action == SQLITE_INSERT || action == SQLITE_UPDATE || action == SQLITE_DELETE;
    if (changes && trigger == nullptr && table != nullptr) static_cast<Sql*>(self)->prepared_table_ = table;
    return SQLITE_OK;
} catch (const std::bad_alloc&) {
    return SQLITE_DENY;
}

std::unique_ptr<SqlStatement> Sql::Prepare(std::string_view text, unsigned flags) {
    prepared_table_.clear();
    read_error = 0;
    sqlite3_stmt* handle = nullptr;
    const char* tail = nullptr;
    if (text.size() > INT_MAX || sqlite3_prepare_v3(db_, text.data(), static_cast<int>(text.size()), flags,
                                                    &handle, &tail) != SQLITE_OK) {
        Fail();
        return nullptr;
    }
    std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> owner(handle, &sqlite3_finalize);
    std::unique_ptr<SqlStatement> statement(new SqlStatement(handle, prepared_table_));
    static_cast<void>(owner.release());  // the statement's now
    if (handle == nullptr || !IsOnlyBlank(tail, text.data() + text.size())) {
        error_ = handle == nullptr ? "no statement" : "more than one statement";
        error_code_ = SQLITE_MISUSE;
        return nullptr;
    }
    return statement;
}

SqlStatement* Sql::Kept(const char* text) {
    std::unique_ptr<SqlStatement>& slot = kept_[text];
    if (slot == nullptr) slot = Prepare(text, SQLITE_PREPARE_PERSISTENT);
    return slot.get();
}

/// Its values, and what it holds of the database.
void Sql::Forget(SqlStatement& statement) {
    sqlite3_reset(statement.handle_);
    sqlite3_clear_bindings(statement.handle_);
}

int Sql::Run(SqlStatement& statement) {
    const int64_t before = TotalChanges();
    int code = 0;
    read_error = 0;
    do {
        code = sqlite3_step(statement.handle_);
    } while (code == SQLITE_ROW);
    if (code != SQLITE_DONE) Fail();
    Forget(statement);
    if (code != SQLITE_DONE) return -1;

    // sqlite3_changes would repeat the count of an earlier statement.
    if (TotalChanges() == before) return 0;
    const int affected = sqlite3_changes(db_);
    if (affected > 0 && changed_ != nullptr) changed_(statement.table_.c_str());
    return affected;
}

int Sql::Execute(std::string_view text) {
    const std::unique_ptr<SqlStatement> statement = Prepare(text, 0);
    return statement != nullptr ? Run(*statement) : -1;
}

bool Sql::ExecuteScript(const std::string& script) {
    read_error = 0;
    if (sqlite3_exec(db_, script.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK) return true;
    Fail();
    return false;
}

// ---- Queries

std::unique_ptr<SqlRows> Sql::Query(std::string_view text) {
    const std::unique_ptr<SqlStatement> statement = Prepare(text, 0);
    return statement != nullptr ? Query(*statement) : nullptr;
}

std::unique_ptr<SqlRows> Sql::Query(SqlStatement& statement) try {
    read_error = 0;
    sqlite3_stmt* const handle = statement.handle_;
    auto rows = std::make_unique<SqlRows>();
    const int columns = sqlite3_column_count(handle);
    for (int i = 0; i < columns; ++i)
        rows->columns_.emplace_back(sqlite3_column_name(handle, i));

    int code = 0;
    while ((code = sqlite3_step(handle)) == SQLITE_ROW && rows->count_ < INT_MAX) {
        for (int i = 0; i < columns; ++i) {
            const auto* field = reinterpret_cast<const char*>(sqlite3_column_text(handle, i));
            rows->offsets_.push_back(rows->text_.size());
            rows->text_.append(field != nullptr ? field : "").push_back('\0');
        }
        ++rows->count_;
    }
    if (code != SQLITE_DONE) {
        Fail();
        rows.reset();
    }
    Forget(statement);
    return rows;
} catch (const std::bad_alloc&) {
    Forget(statement);
    error_ = "the result does not fit into the memory";
    error_code_ = SQLITE_NOMEM;
    return nullptr;
}

int64_t Sql::QueryNumber(std::string_view text) {
    const std::unique_ptr<SqlRows> rows = Query(text);
    if (rows == nullptr || rows->count_ == 0 || rows->columns_.empty()) return -1;
    return strtoll(rows->text_.c_str(), nullptr, 10);
}

// ---- State

bool Sql::InTransaction() const {
    return sqlite3_get_autocommit(db_) == 0;
}

int64_t Sql::TotalChanges() const {
    return sqlite3_total_changes64(db_);
}

bool Sql::FileMoved() const {
    int moved = 0;
    return sqlite3_file_control(db_, "main", SQLITE_FCNTL_HAS_MOVED, &moved) == SQLITE_OK && moved != 0;
}

/// Every connection holds a lock on its log's index as long as it lives.  Asking for that lock would mean to
/// open and close the index, which would drop the locks that this process holds on it: so the kernel's list
/// is read.
bool Sql::HasCompany() const {
    struct stat status;
    const std::unique_ptr<FILE, decltype(&fclose)> locks(fopen("/proc/locks", "re"), &fclose);
    if (locks == nullptr || stat((file_ + "-shm").c_str(), &status) != 0) return true;
    char line[256];
    while (fgets(line, sizeof line, locks.get()) != nullptr) {
        // "1: POSIX  ADVISORY  READ 4711 fd:01:262157 128 128"
        const char* word[6] = {};
        char* rest = nullptr;
        for (size_t i = 0; i < std::size(word); ++i)
            word[i] = strtok_r(i == 0 ? line : nullptr, " ", &rest);
        const char* inode = word[5] != nullptr ? strrchr(word[5], ':') : nullptr;
        if (inode != nullptr && strtoull(inode + 1, nullptr, 10) == status.st_ino &&
            strtol(word[4], nullptr, 10) != getpid())
            return true;
    }
    return false;
}

bool Sql::SyncLog() {
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
    error_ = sqlite3_errstr(code);
    error_code_ = code;
    return false;
}

bool Sql::Vacuum() {
    // Some hundred pages are moved in a few milliseconds.
    constexpr const char kStep[] = "PRAGMA incremental_vacuum(512)";
    constexpr int64_t kIncremental = 2;
    if (QueryNumber("PRAGMA auto_vacuum") != kIncremental)
        return Execute("PRAGMA auto_vacuum=INCREMENTAL") >= 0 && Execute("VACUUM") >= 0;
    int64_t before = 0, unused = QueryNumber(kCountUnused);
    while (unused > 0 && unused != before) {
        if (Query(kStep) == nullptr) return false;
        before = std::exchange(unused, QueryNumber(kCountUnused));
    }
    return unused >= 0;
}

void Sql::Fail() {
    error_ = db_ != nullptr ? sqlite3_errmsg(db_) : "out of memory";
    error_code_ = db_ != nullptr ? sqlite3_errcode(db_) : SQLITE_NOMEM;
    error_number_ = db_ != nullptr ? sqlite3_system_errno(db_) : ENOMEM;
    if (error_code_ != SQLITE_CORRUPT && error_code_ != SQLITE_NOTADB) return;
    error_number_ = read_error;
    if (read_error != 0) error_ = std::string("the file could not be read: ") + strerror(read_error);
}

bool Sql::FailAs(const char* reason) {
    error_ = reason;
    error_code_ = SQLITE_READONLY;
    error_number_ = EACCES;
    return false;
}

bool Sql::FailedBusy() const {
    return error_code_ == SQLITE_BUSY;
}

bool Sql::FailedByFile() const {
    return error_code_ == SQLITE_CORRUPT || error_code_ == SQLITE_NOTADB || error_code_ == SQLITE_IOERR ||
           error_code_ == SQLITE_CANTOPEN || error_code_ == SQLITE_READONLY;
}

bool Sql::FailedForNow() const {
    switch (error_code_) {
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
            return error_number_ != 0 && IsPassingError(error_number_);
        default:
            return false;
    }
}

}  // namespace koli::host
