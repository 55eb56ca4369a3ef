// Opening and closing a database, and telling when its file is no longer usable.
#include <utility>

#include "base/log.h"
#include "platform/host/database_groups.h"
#include "platform/host/engine_choice.h"

namespace koli::host {
namespace {

constexpr const char kModule[] = "kolidb";
constexpr int64_t kRetryMs = 5000;

}  // namespace

bool Database::Open() {
    if (sql_ != nullptr) return true;
    if (CoarseNowMs() < retry_at_) return false;  // error_ still tells why
    SqlFailure failure;
    std::unique_ptr<DatabaseEngine> engine = EngineIn("", &failure);
    if (engine != nullptr) {
        engine_ = std::move(engine);
        if (!IsFree()) return false;
        sql_ = engine_->Open(id_, changed_, &failure);
    }
    if (sql_ == nullptr) {
        if (Report(failure, "open")) Refuse(error_);
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
    if (engine_ == nullptr || engine_->IsFree(id_, &reason)) return true;
    KOLI_LOG("Failed to open %s. (%s)", name_, reason.c_str());
    error_ = reason;
    Refuse(reason);
    return false;
}

/// Closes a connection whose file has failed, or is no longer the one in the directory: what the batch has
/// stored in that one went with it, so the batch has to be repeated.  False when the database refuses because
/// of that.
bool Database::DropUnusable() {
    if (sql_ == nullptr) return true;
    const bool moved = sql_->IsTakenAway();
    if (!moved && !suspect_) return true;
    if (moved && written_) {
        KOLI_LOG("%s was taken away.", name_);
        Refuse("the file was taken away");
    }
    sql_.reset();
    return !IsRefusing();
}

void Database::Close() {
    Flush();
    sql_.reset();
    has_group_ = false;
    BeginBatch();
}

void DatabaseDirectorySet(const char* directory) {
    MediaDatabase().Close();
    PhotoDatabase().Close();
    DatabaseDirectoryChoose(directory);
}

}  // namespace koli::host
