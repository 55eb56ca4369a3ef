#include "tools/ctl/status.h"

#include <linux/landlock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "platform/host/tables.h"
#include "platform/kolisdk.h"
#include "tools/ctl/batch_state.h"
#include "tools/ctl/membership.h"
#include "tools/ctl/output.h"
#include "tools/ctl/status_look.h"
#include "tools/ctl/store_reader.h"

namespace koli::ctl {
namespace {

/// Version of the kernel's file rules, 0 = none.
int64_t LandlockVersion() {
    const auto version =
        syscall(SYS_landlock_create_ruleset, nullptr, size_t{0}, LANDLOCK_CREATE_RULESET_VERSION);
    return std::max<int64_t>(version, 0);
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

/// Adds what can be read of a database.  False: something is wrong with it.
bool AddDatabase(const host::DatabaseEngine& engine, int database, bool complains, Record* record) {
    const std::string name = host::DatabaseName(database);
    const host::DatabaseView view = engine.Look(database, host::DatabaseCheck::kQuick);
    const host::DatabaseFault& fault = view.fault;
    const bool is_missing = fault.state == host::DatabaseState::kMissing;
    record->emplace_back(name, host::DatabaseStateName(fault.state));
    if (!fault.reason.empty()) record->emplace_back(name + "_fault", fault.reason);
    const std::string unchanged = is_missing ? "not created yet" : "";
    record->emplace_back(name + "_changed", view.changed > 0 ? TimeText(view.changed) : unchanged);
    if (database == KOLI_PHOTO_DB) {
        AddRows(host::kPhotoTables, view.counts, is_missing, record);
    } else {
        AddRows(host::kMediaTables, view.counts, is_missing, record);
        for (const auto& [table, rows] : view.counts)
            if (table == host::kProblemTable) record->emplace_back("unparsable", rows);
    }
    if (fault.state == host::DatabaseState::kSound || is_missing) return true;
    if (!complains) return false;
    const bool is_refused = fault.state == host::DatabaseState::kNotPermitted && engine.IsInFiles();
    const std::string hint = is_refused ? JoinHint(engine.place()) : "";
    Complain("%s%s", DatabaseFaultText(engine, database, fault).c_str(), hint.c_str());
    return false;
}

void AddHost(Record* record) {
    record->emplace_back("photo_library",
                         BlKOLIFileCheckKeyValue(paths::kDefaults, "supportphoto", "yes", 0) != 0);
    record->emplace_back("probe_call_filter", access("/proc/sys/kernel/seccomp/actions_avail", F_OK) == 0);
    record->emplace_back("probe_file_rules_version", LandlockVersion());
}

}  // namespace

std::string DatabaseFaultText(const host::DatabaseEngine& engine, int database,
                              const host::DatabaseFault& fault) {
    const std::string name = host::DatabaseName(database);
    switch (fault.state) {
        case host::DatabaseState::kDamaged:
            return name + " is damaged: " + fault.reason +
                   (engine.IsInFiles() ? "; koliindexctl repair mends it"
                                       : "; its server's own tools mend it");
        case host::DatabaseState::kUnknownSchema:
            return name + " is of an unknown schema: " + fault.reason;
        case host::DatabaseState::kLocked:
            return name + " is locked by another program: " + fault.reason;
        default:
            return name + " cannot be read: " + fault.reason;
    }
}

bool AddDatabases(const Context& context, bool complains, Record* record) {
    std::string error;
    const auto engine = EngineOf(context.places, &error);
    if (engine == nullptr) {
        if (complains) Complain("%s", error.c_str());
        return false;
    }
    record->emplace_back("databases", engine->place());
    bool is_sound = true;
    for (const int database : host::kDatabases)
        is_sound &= AddDatabase(*engine, database, complains, record);
    return is_sound;
}

bool AddLibraries(const Context& context, Record* record, Section* libraries) {
    std::string error;
    const auto engine = EngineOf(context.places, &error);
    host::SqlFailure failure;
    const std::vector<std::string> names =
        engine != nullptr ? engine->Libraries(&failure) : std::vector<std::string>();
    if (engine == nullptr || !failure.reason.empty()) {
        Complain("%s", engine == nullptr ? error.c_str() : failure.reason.c_str());
        return false;
    }
    record->emplace_back("databases", engine->place());
    bool is_sound = true;
    Context of_library = context;
    for (const std::string& name : names) {
        Record library{{"library", name}};
        of_library.places.library = name;
        is_sound &= AddDatabases(of_library, true, &library);
        libraries->records.push_back(std::move(library));
    }
    return is_sound;
}

int Status(const Context& context) {
    const bool has_libraries = context.places.library == kEveryLibrary;
    const StatusLook look = StatusLookNow(context.places);
    Record record = RecordOf(look);
    Section libraries{"libraries"};
    const bool is_sound =
        has_libraries ? AddLibraries(context, &record, &libraries) : AddDatabases(context, true, &record);
    AddHost(&record);
    if (context.json) {
        std::vector<Section> lists = {WatchedOf(look)};
        if (has_libraries) lists.push_back(libraries);
        printf("%s\n", RecordJson(record, lists, false).c_str());
    } else {
        const Record watched = WatchedTexts(look);
        record.insert(record.end(), watched.begin(), watched.end());
        PrintRecord(record, false);
        PrintSections({{"library", libraries.records}}, false);
    }
    if (!is_sound) return kExitDatabase;
    return look.pid > 0 ? kExitDone : kExitNoDaemon;
}

}  // namespace koli::ctl
