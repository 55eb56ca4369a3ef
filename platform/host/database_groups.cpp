#include "platform/host/database_groups.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>

#include "base/log.h"
#include "platform/host/database_directory.h"
#include "platform/host/schema.h"
#include "platform/host/table_marks.h"

namespace koli::host {
namespace {

constexpr const char kModule[] = "kolidb";
constexpr int kGroupWrites = 256;
constexpr int64_t kGroupAgeMs = 1000;
constexpr int64_t kRetryMs = 5000;
constexpr int kLockedWaitMs = 100;

int64_t NowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

}  // namespace

Database::Database(const char* file_name, std::vector<std::string> schema, Sql::ChangeListener changed)
    : file_name_(file_name), schema_(std::move(schema)), changed_(changed) {}

/// Logs a failure with the engine's reason and keeps that for error().
int Database::Failed(const char* what, int line) {
    if (sql_ != nullptr) {
        error_ = sql_->error();
        if (sql_->FailedByFile()) suspect_ = true;
    }
    LogError("%s (%d) Failed to %s %s. (%s)", kModule, line, what, file_name_, error_.c_str());
    return -1;
}

/// Failed, for what a request has asked for: its batch has to be repeated unless the statement itself is
/// wrong.
int Database::Refused(const char* what, int line) {
    lost_ |= sql_->FailedForNow();
    return Failed(what, line);
}

// ---- Opening and closing

bool Database::Open() {
    if (sql_ != nullptr) return true;
    if (NowMs() < retry_at_) {
        Failed("open");  // error_ still tells why
        return false;
    }
    const std::string directory = DatabaseDirectory();
    if (directory.empty()) {
        error_ = "unknown engine";
        retry_at_ = NowMs() + kRetryMs;
        return false;  // logged
    }
    if (MakeDirectories(directory))
        sql_ = Sql::Open(directory + "/" + file_name_, changed_, &error_);
    else
        error_ = strerror(errno);
    if (sql_ == nullptr || !CreateTables()) {
        Failed("open");
        sql_.reset();
        retry_at_ = NowMs() + kRetryMs;  // from now on: the attempt may have waited longer for a lock
        return false;
    }
    retry_at_ = 0;
    suspect_ = false;
    // What a killed process had committed counts as unchanged when its batch is repeated, but may not be on
    // the disk.
    unsynced_ = true;
    return true;
}

/// Gives an empty database its tables, and an older one those that it lacks; whoever comes second finds them
/// there.
bool Database::CreateTables() {
    const auto wanted = static_cast<int64_t>(schema_.size());
    int64_t version = sql_->QueryNumber("PRAGMA user_version");
    if (version >= wanted) return true;
    if (version < 0 || sql_->Execute("BEGIN IMMEDIATE") < 0) return false;
    version = sql_->QueryNumber("PRAGMA user_version");
    for (; version >= 0 && version < wanted; ++version)
        if (!sql_->ExecuteScript(schema_[static_cast<size_t>(version)] +
                                 "PRAGMA user_version=" + std::to_string(version + 1)))
            return false;
    return version >= 0 && sql_->Execute("COMMIT") >= 0;
}

/// The file is no longer the one in the directory: what the batch has stored so far went with it.
bool Database::HasMoved() {
    const bool moved = sql_->FileMoved();
    lost_ |= moved && written_;
    return moved;
}

/// Closes a connection whose file has failed, or has moved.
void Database::DropUnusable() {
    const bool moved = HasMoved();
    if (!moved && !suspect_) return;
    if (moved) sql_->KeepLogOnClose();
    sql_.reset();
}

void Database::Close() {
    Flush();
    sql_.reset();
    retry_at_ = 0;
}

// ---- Groups

/// Another program has held the database for as long as an operation waits: the rest of the batch must not
/// wait that long row by row.
void Database::NoteLock() {
    if (!sql_->FailedBusy()) return;
    locked_ = true;
    sql_->WaitForLocks(kLockedWaitMs);
}

bool Database::BeginGroup() {
    if (sql_ != nullptr && sql_->InTransaction()) return true;
    if (sql_ != nullptr) DropUnusable();
    if (!Open()) {
        lost_ = true;  // nothing at all can be stored: the batch has to wait until the file is sound again
        return false;
    }
    if (sql_->Execute("BEGIN IMMEDIATE") < 0) {
        NoteLock();
        Refused("begin a group of");
        return false;
    }
    if (std::exchange(locked_, false)) sql_->WaitForLocks(Sql::kLockWaitMs);
    group_began_ = NowMs();
    group_writes_ = 0;
    group_changes_ = sql_->TotalChanges();
    return true;
}

int Database::Flush() {
    if (sql_ == nullptr || !sql_->InTransaction()) return 0;
    const bool wrote = sql_->TotalChanges() != group_changes_;
    if (sql_->Execute("COMMIT") >= 0) {
        unsynced_ |= wrote;
        written_ |= wrote;
        return 0;
    }
    const bool can_wait = sql_->FailedBusy() && !in_unit_;
    Failed("commit to");
    if (can_wait) return -1;  // the group stays open, the next flush tries again
    if (sql_->InTransaction()) sql_->Execute("ROLLBACK");
    lost_ |= wrote;
    return -1;
}

int Database::CountWrite(int affected) {
    if (affected < 0) {
        Refused("write to");
        lost_ |= !sql_->InTransaction();  // short of memory, the engine takes the whole transaction back
    }
    ++group_writes_;
    if (!in_unit_ && (group_writes_ >= kGroupWrites || NowMs() - group_began_ >= kGroupAgeMs)) Flush();
    return affected;
}

SqlStatement* Database::Prepare(const char* text) {
    if (!BeginGroup()) return nullptr;
    SqlStatement* statement = sql_->Kept(text);
    if (statement == nullptr) Refused("prepare a statement for");
    return statement;
}

int Database::Run(SqlStatement& statement) {
    return CountWrite(sql_->Run(statement));
}

int Database::Execute(std::string_view text) {
    return BeginGroup() ? CountWrite(sql_->Execute(text)) : -1;
}

std::unique_ptr<SqlRows> Database::Query(std::string_view text) {
    if (sql_ != nullptr && !sql_->InTransaction()) DropUnusable();
    if (!Open()) {
        lost_ = true;  // as in BeginGroup: a request that looks something up first is not done either
        return nullptr;
    }
    std::unique_ptr<SqlRows> rows = sql_->Query(text);
    if (rows == nullptr) {
        NoteLock();
        Refused("read from");
    }
    return rows;
}

bool Database::BeginUnit() {
    if (Flush() != 0 || !BeginGroup()) return false;
    in_unit_ = true;
    return true;
}

int Database::EndUnit(bool keep) {
    if (!in_unit_) return -1;
    int result = -1;
    if (!sql_->InTransaction())
        error_ = "transaction was rolled back";  // by the failure that has been logged
    else if (keep)
        result = Flush();
    else
        sql_->Execute("ROLLBACK");
    in_unit_ = false;
    return result;
}

// ---- Durability and space

int Database::Harden() {
    int result = Flush();
    if (sql_ != nullptr) HasMoved();
    if (lost_) result = -1;
    if (!unsynced_ || sql_ == nullptr) return result;
    if (!sql_->SyncLog()) return Failed("sync");
    unsynced_ = false;
    return result;
}

int Database::Sync() {
    const int result = Harden();
    written_ = false;
    if (std::exchange(lost_, false))
        KOLI_LOG("%s (%d) Changes meant for %s were lost or refused.", file_name_);
    return result;
}

int Database::Vacuum() {
    if (Flush() != 0) return -1;
    if (sql_ != nullptr) DropUnusable();
    if (!Open()) return -1;
    const int64_t unused = sql_->QueryNumber("PRAGMA freelist_count");
    if (unused == 0) return 0;
    if (unused < 0 || sql_->Execute("VACUUM") < 0) return Failed("vacuum");
    unsynced_ = true;
    sql_->Query("PRAGMA wal_checkpoint(TRUNCATE)");  // a reader may delay it: later then
    return 0;
}

Database& MediaDatabase() {
    static auto* const database = new Database("media.db", MediaSchemaSteps(), MediaTableChanged);
    return *database;  // never destroyed: the process may end at any instant
}

Database& PhotoDatabase() {
    static auto* const database = new Database("photo.db", PhotoSchemaSteps(), nullptr);
    return *database;
}

void DatabaseDirectorySet(const char* directory) {
    MediaDatabase().Close();
    PhotoDatabase().Close();
    DatabaseDirectoryChoose(directory);
}

}  // namespace koli::host
