// Opening and closing a database, and telling when its file is no longer usable.
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/log.h"
#include "base/passing_error.h"
#include "platform/host/database_directory.h"
#include "platform/host/database_exchange.h"
#include "platform/host/database_groups.h"

namespace koli::host {
namespace {

constexpr const char kModule[] = "kolidb";
constexpr int64_t kRetryMs = 5000;

}  // namespace

Database::Database(const char* file_name, std::vector<std::string> schema, Sql::ChangeListener changed)
    : file_name_(file_name), schema_(std::move(schema)), changed_(changed) {}

bool Database::Open() {
    if (sql_ != nullptr) return true;
    if (CoarseNowMs() < retry_at_) return false;  // error_ still tells why
    const std::string directory = DatabaseDirectory();
    bool passes = false;
    if (directory.empty()) {
        passes = IsPassingError(errno);
        error_ = passes ? strerror(errno) : "unknown engine";
    } else if (!MakeDirectories(directory)) {
        passes = IsPassingError(errno);
        error_ = strerror(errno);
    } else {
        path_ = directory + "/" + file_name_;
        if (!IsFree()) return false;
        sql_ = Sql::Open(path_, changed_, &error_, &passes);
    }
    if (sql_ == nullptr || !CreateTables()) {
        Failed("open");
        if (passes) Refuse(error_);
        sql_.reset();
        retry_at_ = CoarseNowMs() + kRetryMs;  // from now on: the attempt may have waited longer for a lock
        return false;
    }
    retry_at_ = 0;
    suspect_ = false;
    // What a killed process had committed counts as unchanged when its batch is repeated, but may not be on
    // the disk.
    unsynced_ = true;
    return true;
}

/// False, and refusing, while the database is being repaired.
bool Database::IsFree() {
    std::string reason;
    if (path_.empty() || DatabaseIsFree(path_, &reason)) return true;
    KOLI_LOG("%s (%d) Failed to open %s. (%s)", file_name_, reason.c_str());
    error_ = reason;
    Refuse(reason);
    return false;
}

/// Gives an empty database its tables, and an older one those that it lacks; whoever comes second finds them
/// there.  One that a later program has made is not touched.
bool Database::CreateTables() {
    const auto wanted = static_cast<int64_t>(schema_.size());
    int64_t version = sql_->QueryNumber("PRAGMA user_version");
    if (version > wanted) return sql_->FailAs("its tables are of a later version");
    if (version == wanted) return true;
    if (version < 0 || sql_->Execute("BEGIN IMMEDIATE") < 0) return false;
    version = sql_->QueryNumber("PRAGMA user_version");
    for (; version >= 0 && version < wanted; ++version)
        if (!sql_->ExecuteScript(schema_[static_cast<size_t>(version)] +
                                 "PRAGMA user_version=" + std::to_string(version + 1)))
            return false;
    return version >= 0 && sql_->Execute("COMMIT") >= 0;
}

/// Closes a connection whose file has failed, or is no longer the one in the directory: what the batch has
/// stored in that one went with it, so the batch has to be repeated.  False when the database refuses because
/// of that.
bool Database::DropUnusable() {
    if (sql_ == nullptr) return true;
    const bool moved = sql_->FileMoved();
    if (!moved && !suspect_) return true;
    if (moved) sql_->KeepLogOnClose();
    if (moved && written_) {
        KOLI_LOG("%s (%d) %s was taken away.", file_name_);
        Refuse("the file was taken away");
    }
    sql_.reset();
    return !IsRefusing();
}

void Database::Close() {
    Flush();
    sql_.reset();
    BeginBatch();
}

void DatabaseDirectorySet(const char* directory) {
    MediaDatabase().Close();
    PhotoDatabase().Close();
    DatabaseDirectoryChoose(directory);
}

}  // namespace koli::host
