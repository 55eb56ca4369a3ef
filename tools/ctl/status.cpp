#include "tools/ctl/status.h"

#include <linux/landlock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/line_count.h"
#include "base/regular_file.h"
#include "platform/host/tables.h"
#include "platform/kolisdk.h"
#include "tools/ctl/batch_state.h"
#include "tools/ctl/membership.h"
#include "tools/ctl/output.h"
#include "tools/ctl/request_writer.h"
#include "tools/ctl/store_reader.h"

namespace koli::ctl {
namespace {

/// Lines of a queue file, as far as it is long now; -1 with errno set when there is none.
int64_t CountLines(const std::string& file) {
    const RegularFile queue(file.c_str());
    return queue.ok() ? LineCount(queue.descriptor(), queue.size()) : -1;
}

/// Left out when the file may not be read: that says nothing about what waits.
void AddCount(const char* name, const std::string& file, Record* record) {
    const int64_t lines = CountLines(file);
    if (lines >= 0 || errno != EACCES) record->emplace_back(name, std::max<int64_t>(lines, 0));
}

/// Version of the kernel's file rules, 0 = none.
int64_t LandlockVersion() {
    const auto version =
        syscall(SYS_landlock_create_ruleset, nullptr, size_t{0}, LANDLOCK_CREATE_RULESET_VERSION);
    return std::max<int64_t>(version, 0);
}

void AddBatch(const Places& places, int pid, Record* record) {
    const BatchState batch = BatchStateOf(places, pid);
    record->emplace_back("batch", BatchStateName(batch.kind));
    AddCount("requests_in_batch", places.batch, record);
    if (batch.kind != BatchState::kKept) return;
    record->emplace_back("kept_because_of", batch.database);
    record->emplace_back("kept_reason", batch.reason);
    record->emplace_back("kept_since", TimeText(batch.since));
    record->emplace_back("next_attempt", TimeText(batch.retry));
}

void AddDaemon(const Context& context, int pid, Record* record) {
    const Places& places = context.places;
    record->emplace_back("daemon", pid > 0 ? "running" : "not running");
    record->emplace_back("pid", int64_t{pid});
    record->emplace_back("since", pid > 0 ? TimeText(ChangeTime(places.pid_file)) : "");
    AddCount("requests_waiting", places.queue, record);
    AddBatch(places, pid, record);
}

using Counts = std::vector<std::pair<std::string, int64_t>>;

/// The rows of one database's tables.  Tables that cannot be counted are left out.
template <size_t N>
void AddRows(const char* const (&tables)[N], const Counts& counts, bool is_missing, Record* record) {
    for (const char* table : tables) {
        const auto found = std::find_if(counts.begin(), counts.end(),
                                        [table](const auto& count) { return count.first == table; });
        if (found != counts.end() || is_missing)
            record->emplace_back(std::string("rows_") + table, is_missing ? int64_t{0} : found->second);
    }
}

/// Adds what can be read of a database; complains about what is wrong with it.  False: something is.
bool AddDatabase(const host::DatabaseEngine& engine, int database, Record* record) {
    const std::string name = host::DatabaseName(database);
    const host::DatabaseView view = engine.Look(database, host::DatabaseCheck::kQuick);
    const host::DatabaseFault& fault = view.fault;
    const bool is_missing = fault.state == host::DatabaseState::kMissing;
    record->emplace_back(name, host::DatabaseStateName(fault.state));
    if (!fault.reason.empty()) record->emplace_back(name + "_fault", fault.reason);
    record->emplace_back(name + "_changed", view.changed > 0 ? TimeText(view.changed) : "not created yet");
    if (database == KOLI_PHOTO_DB) {
        AddRows(host::kPhotoTables, view.counts, is_missing, record);
    } else {
        AddRows(host::kMediaTables, view.counts, is_missing, record);
        for (const auto& [table, rows] : view.counts)
            if (table == host::kProblemTable) record->emplace_back("unparsable", rows);
    }
    if (fault.state == host::DatabaseState::kSound || is_missing) return true;
    const bool is_refused = fault.state == host::DatabaseState::kNotPermitted;
    const std::string hint = is_refused ? JoinHint(engine.place()) : "";
    Complain("%s%s", DatabaseFaultText(database, fault).c_str(), hint.c_str());
    return false;
}

bool AddDatabases(const Context& context, Record* record) {
    std::string error;
    const auto engine = EngineOf(context.places, &error);
    if (engine == nullptr) {
        Complain("%s", error.c_str());
        return false;
    }
    record->emplace_back("databases", engine->place());
    bool is_sound = true;
    for (const int database : host::kDatabases)
        is_sound &= AddDatabase(*engine, database, record);
    return is_sound;
}

void AddHost(Record* record) {
    record->emplace_back("photo_library",
                         BlKOLIFileCheckKeyValue(paths::kDefaults, "supportphoto", "yes", 0) != 0);
    record->emplace_back("probe_call_filter", access("/proc/sys/kernel/seccomp/actions_avail", F_OK) == 0);
    record->emplace_back("probe_file_rules_version", LandlockVersion());
}

}  // namespace

std::string DatabaseFaultText(int database, const host::DatabaseFault& fault) {
    const std::string name = host::DatabaseName(database);
    switch (fault.state) {
        case host::DatabaseState::kDamaged:
            return name + " is damaged: " + fault.reason + "; koliindexctl repair mends it";
        case host::DatabaseState::kUnknownSchema:
            return name + " is of an unknown schema: " + fault.reason;
        case host::DatabaseState::kLocked:
            return name + " is locked by another program: " + fault.reason;
        default:
            return name + " cannot be read: " + fault.reason;
    }
}

int Status(const Context& context) {
    const int pid = DaemonPid(context.places.pid_file);
    Record record;
    AddDaemon(context, pid, &record);
    const bool is_sound = AddDatabases(context, &record);
    AddHost(&record);
    PrintRecord(record, context.json);
    if (!is_sound) return kExitDatabase;
    return pid > 0 ? kExitDone : kExitNoDaemon;
}

}  // namespace koli::ctl
