#include "platform/host/database_groups.h"

#include <algorithm>
#include <ctime>
#include <new>
#include <utility>

#include "base/log.h"
#include "platform/host/path_range.h"
#include "platform/host/table_marks.h"
#include "platform/host/tables.h"

namespace koli::host {
namespace {

constexpr const char kModule[] = "kolidb";
constexpr int kGroupWrites = 256;
constexpr int kRemovedAtOnce = 1000;
constexpr int kRemovedMax = 1'000'000'000;  // a server may say anything
constexpr int64_t kGroupAgeMs = 500;
constexpr int64_t kBusyMs = 500;  // with the age of a group, less than others wait for a lock
constexpr int64_t kGapMs = 120;
constexpr int kHeldWaitMs = 200;  // for a lock while the other database has an open unit
constexpr int kUnitsMax = 64;
/// Commits what other databases have open, before this one waits: two programs could wait for each other.
/// False when one has to stay open.
bool FlushAllBut(const Database& waiting) {
    bool are_free = true;
    for (Database* each : {&MediaDatabase(), &PhotoDatabase()}) {
        if (each == &waiting) continue;
        each->Flush();
        are_free = are_free && !each->IsGroupOpen();
    }
    return are_free;
}

}  // namespace

int64_t CoarseNowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// ---- Failures

/// A connection whose lock could not be given back refuses for good: after a refusal a new one is made.
void Database::BeginBatch() {
    if (IsRefusing()) sql_.reset();
    refusal_.clear();
    told_.clear();
    written_ = false;
    retry_at_ = 0;
    note_name_ = nullptr;
}

void Database::Refuse(const std::string& reason) {
    refusal_ = reason.empty() ? "unknown reason" : reason;
    if (IsGroupOpen()) sql_->Execute("ROLLBACK");
    has_group_ = false;
    savepoints_ = 0;
    note_name_ = nullptr;
}

/// What needs memory itself is tried, no more: without its connection the group is lost as well.
void Database::RefuseForMemory() noexcept {
    refusal_ = "out of memory";  // short enough to need none
    has_group_ = false;
    savepoints_ = 0;
    note_name_ = nullptr;
    LogError(LogSite(kModule), "Out of memory: %s takes no more changes.", name_);
    try {
        if (IsGroupOpen()) sql_->Execute("ROLLBACK");
    } catch (const std::bad_alloc&) {
    }
    if (IsGroupOpen()) sql_.reset();
}

/// Keeps and logs the reason of a failure; true when it passes.
bool Database::Report(const SqlFailure& failure, const char* what, int line) {
    error_ = failure.reason;
    suspect_ = suspect_ || failure.is_of_file;
    if (told_ != error_)
        LogError(LogSite(kModule, LogForm::kSpaced, line), "Failed to %s %s. (%s)", what, name_,
                 error_.c_str());
    told_ = error_;
    return failure.passes;
}

/// The same of the last failure, and the database refuses from now on when it passes.
int Database::Failed(const char* what, int line) {
    if (Report(sql_->failure(), what, line)) Refuse(error_);
    return -1;
}

// ---- Groups

/// Other programs that wait for the lock look for it every now and then, every tenth of a second at last:
/// between groups that follow each other at once they would never find it free.
void Database::LeaveGap() {
    const int64_t now = CoarseNowMs();
    const int64_t gap = now - group_ended_;
    if (gap < kGapMs && now - busy_since_ < kBusyMs) return;
    busy_since_ = now;
    if (gap >= kGapMs || !sql_->HasCompany()) return;
    FlushAllBut(*this);
    const timespec pause{0, static_cast<long>((kGapMs - gap) * 1'000'000)};
    nanosleep(&pause, nullptr);
    busy_since_ = CoarseNowMs();
}

bool Database::BeginTransaction() {
    sql_->WaitForLocks(0);
    bool is_begun = sql_->Begin();
    if (!is_begun && sql_->failure().is_lock) {
        sql_->WaitForLocks(FlushAllBut(*this) ? Sql::kLockWaitMs : kHeldWaitMs);
        is_begun = sql_->Begin();
    }
    sql_->WaitForLocks(Sql::kLockWaitMs);
    return is_begun;
}

/// With a connection goes its group, also where nobody has asked for what failed.
void Database::MissGroup() {
    if (!std::exchange(has_group_, IsGroupOpen()) || has_group_) return;
    if (sql_ != nullptr)
        Failed("keep a group of");
    else
        Refuse("it was closed too early");
}

bool Database::BeginGroup() {
    MissGroup();
    if (IsRefusing()) return false;
    if (IsGroupOpen()) return true;
    if (!IsFree() || !DropUnusable() || !Open()) return false;
    LeaveGap();
    if (!BeginTransaction()) {
        Failed("begin a group of");
        return false;
    }
    has_group_ = true;
    group_began_ = CoarseNowMs();
    group_writes_ = 0;
    group_changes_ = sql_->TotalChanges();
    return true;
}

bool Database::StoreNote() {
    SqlStatement* const statement = sql_->KeptSave(SettingForm());
    return statement != nullptr && sql_->Run(statement->Fill(note_name_, note_)) >= 0;
}

/// A row that fails for good leaves the others alone; the batch does not come again for it.
void Database::TellLost() {
    for (const std::string& reason : sql_->TakeLost())
        KOLI_LOG("Failed to write to %s. (%s)", name_, reason.c_str());
}

void Database::Settle() {
    if (!IsGroupOpen()) return;
    const bool is_settled = sql_->Settle();
    TellLost();
    if (!is_settled) Failed("write to");
}

/// What has been put off goes with the end, unless a note waits to hear whether it changes anything.
int Database::Commit() {
    has_group_ = false;
    group_ended_ = CoarseNowMs();
    const auto has_written = [this] { return sql_->TotalChanges() != group_changes_; };
    const bool is_ready = note_name_ == nullptr || (sql_->Settle() && (!has_written() || StoreNote()));
    const bool is_committed = is_ready && sql_->Execute("COMMIT") >= 0;
    TellLost();
    if (!is_committed) {
        Failed("commit to");
        if (IsGroupOpen()) sql_->Execute("ROLLBACK");
        savepoints_ = 0;
        return -1;
    }
    savepoints_ = 0;
    if (!has_written()) return 0;
    note_name_ = nullptr;
    unsynced_ = true;
    written_ = true;
    return 0;
}

int Database::Flush() {
    MissGroup();
    return IsGroupOpen() && !IsUnitAtWork() ? Commit() : 0;
}

void Database::Tick() {
    if (IsGroupOpen() && CoarseNowMs() - group_began_ >= kGroupAgeMs) Flush();
}

int Database::CountWrite(int affected) {
    if (affected < 0) Failed("write to");
    if (!IsGroupOpen()) return affected;
    group_writes_ += std::max(affected, 1);
    if (group_writes_ >= kGroupWrites) Flush();
    // A long unit of one database must not keep the group of the other one open.
    MediaDatabase().Tick();
    PhotoDatabase().Tick();
    return affected;
}

SqlStatement* Database::Prepared(SqlStatement* statement) {
    if (statement == nullptr) Failed("prepare a statement for");
    return statement;
}

SqlStatement* Database::Prepare(std::string_view text) {
    return BeginGroup() ? Prepared(sql_->Kept(text)) : nullptr;
}

SqlStatement* Database::PrepareSave(const SaveForm& form) {
    return BeginGroup() ? Prepared(sql_->KeptSave(form)) : nullptr;
}

int Database::Run(SqlStatement& statement) {
    unit_changed_ = units_ > 0;
    return CountWrite(sql_->Run(statement));
}

int Database::RunAdd(SqlStatement& statement) {
    return CountWrite(sql_->RunLater(statement));
}

int Database::RunAddNow(SqlStatement& statement) {
    return CountWrite(sql_->Run(statement));
}

int Database::Remove(const std::string& table, std::string_view path) {
    return Change("DELETE FROM " + table + " WHERE path = ?1", path);
}

/// In pieces: the log of one transaction grows as large as all that it removes.
int Database::RemoveBelow(const std::string& table, std::string_view path) {
    const std::string text = "DELETE FROM " + table + " WHERE path IN (SELECT path FROM " + table +
                             " WHERE " + kPathRange + " LIMIT " + std::to_string(kRemovedAtOnce) + ")";
    int removed = 0;
    for (int piece = kRemovedAtOnce; piece == kRemovedAtOnce && removed < kRemovedMax; removed += piece) {
        SqlStatement* const statement = Prepare(text);
        piece = statement != nullptr ? Run(FillPathRange(*statement, path)) : -1;
        if (piece < 0 || piece > kRemovedAtOnce) return -1;
    }
    return removed;
}

int Database::Execute(std::string_view text) {
    if (!BeginGroup()) return -1;
    unit_changed_ = units_ > 0;
    return CountWrite(sql_->Execute(text));
}

bool Database::OpenToRead() {
    return !IsRefusing() && (IsGroupOpen() || DropUnusable()) && Open();
}

/// The rows, when there are any to give; else the failure is told.
std::unique_ptr<SqlRows> Database::Given(std::unique_ptr<SqlRows> rows) {
    if (rows == nullptr) Failed("read from");
    return rows;
}

std::unique_ptr<SqlRows> Database::Query(std::string_view text) {
    return OpenToRead() ? Given(sql_->Query(text)) : nullptr;
}

std::unique_ptr<SqlRows> Database::PathsInside(const char* table, const std::string& folder) {
    return Answer([&](Sql& sql) { return sql.PathsInside(table, folder); });
}

// ---- Units

bool Database::BeginUnit() {
    if (units_ == 0) unit_changed_ = false;
    const uint64_t bit = units_ < kUnitsMax ? uint64_t{1} << units_ : 0;
    ++units_;
    if (!IsGroupOpen()) return !IsRefusing();
    if (sql_->Execute("SAVEPOINT unit") >= 0) {
        savepoints_ |= bit;
    } else {
        Failed("begin a unit of");
    }
    return !IsRefusing();
}

int Database::EndUnit(bool keep) {
    if (units_ == 0) return -1;
    --units_;
    const uint64_t bit = units_ < kUnitsMax ? uint64_t{1} << units_ : 0;
    const bool has_savepoint = (savepoints_ & bit) != 0;
    savepoints_ &= ~bit;
    if (IsGroupOpen()) {
        // A group that was begun inside the unit holds nothing else.
        const bool is_taken_back =
            keep || sql_->Execute(has_savepoint ? "ROLLBACK TO unit" : "ROLLBACK") >= 0;
        if (!is_taken_back || (has_savepoint && sql_->Execute("RELEASE unit") < 0)) Failed("end a unit of");
        has_group_ = IsGroupOpen();
    }
    if (units_ == 0) Tick();
    return IsRefusing() ? -1 : 0;
}

// ---- Notes

/// While the database refuses, what the note speaks of has been lost.
void Database::SetNote(const char* name, std::string value) {
    if (IsRefusing()) return;
    note_name_ = name;
    note_ = std::move(value);
}

int Database::RemoveNote(const char* name) {
    note_name_ = nullptr;
    const std::unique_ptr<SqlRows> rows = Ask("SELECT 1 FROM setting WHERE name = ?1", name);
    if (rows == nullptr) return -1;
    if (rows->count() == 0) return 0;
    if (Change("DELETE FROM setting WHERE name = ?1", name) < 0) return -1;
    return Harden();
}

// ---- Durability and space

int Database::Harden() {
    if (IsUnitAtWork() && IsGroupOpen()) return 1;
    const int result = Flush();
    if (sql_ != nullptr && !DropUnusable()) return -1;
    if (IsRefusing()) return -1;
    if (!unsynced_ || sql_ == nullptr) return result;
    if (!sql_->Harden()) return Failed("sync");
    unsynced_ = false;
    return result;
}

int Database::Sync() {
    const int result = Harden();
    if (IsRefusing()) KOLI_LOG("Changes meant for %s were lost or refused.", name_);
    return result != 0 || IsRefusing() ? -1 : 0;
}

int Database::Vacuum() {
    if (Flush() != 0 || !DropUnusable() || !Open()) return -1;
    const int given_back = sql_->Vacuum();
    unsynced_ = unsynced_ || given_back != 0;
    // No change is lost with it: the batch that asked for it is done all the same.
    if (given_back < 0) Report(sql_->failure(), "vacuum");
    return given_back < 0 ? -1 : 0;
}

Database& MediaDatabase() {
    static auto* const database = new Database(KOLI_MEDIA_DB, MediaTableChanged);
    return *database;  // never destroyed: the process may end at any instant
}

Database& PhotoDatabase() {
    static auto* const database = new Database(KOLI_PHOTO_DB, nullptr);
    return *database;
}

}  // namespace koli::host
