#include "tools/ctl/repair.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "index/record/share_path.h"
#include "tools/ctl/batch_state.h"
#include "tools/ctl/folder_entries.h"
#include "tools/ctl/membership.h"
#include "tools/ctl/output.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/request_writer.h"
#include "tools/ctl/status.h"
#include "tools/ctl/store_reader.h"
#include "tools/ctl/sync.h"

namespace koli::ctl {
namespace {

using host::DatabaseFault;
using host::DatabaseState;

/// Stands in the databases' folder from the first exchange until what `sync` finds has been queued: a repair
/// that is killed between the two finds nothing damaged the next time.
constexpr const char kSyncDue[] = "/repair.sync-due";

struct Finding {
    int database;
    DatabaseFault fault;
    bool is_begun = false;  // by an earlier repair
    host::Repair repair = {};
};

bool IsInOrder(const Finding& finding) {
    return finding.fault.state == DatabaseState::kSound || finding.fault.state == DatabaseState::kMissing;
}

/// Each folder that could be an album, those below it behind it.
void AddAlbums(const std::string& folder, const std::string& above, std::vector<std::string>* albums) {
    FolderEntries found;
    if (FolderEntriesRead(folder, &found) != 0) return;
    for (const FolderEntry& entry : found.entries) {
        if (entry.kind != FolderEntry::kFolder || (above.empty() && entry.name == "#recycle")) continue;
        albums->push_back(above + entry.name);
        if (above.empty()) AddAlbums(folder + "/" + entry.name, entry.name + "/", albums);
    }
}

std::vector<std::string> AlbumsOfShare() {
    std::vector<std::string> albums;
    const std::string share = VolumePath(paths::kPhotoShare);
    if (share != paths::kPhotoShare) AddAlbums(share, "", &albums);
    return albums;
}

/// A batch that is being executed is not interrupted, unless it waits for this very database.
bool IsBatchInTheWay(const Places& places, const char* name) {
    const BatchState batch = BatchStateOf(places, DaemonPid(places.pid_file));
    const bool waits_for_it =
        batch.kind == BatchState::kKept && batch.database.find(name) != std::string::npos;
    if (waits_for_it || batch.kind == BatchState::kNone || batch.kind == BatchState::kLeftOver) return false;
    Complain("%s cannot be mended now: the daemon is at work on a batch (see koliindexctl status)", name);
    return true;
}

bool MarkSyncDue(const std::string& directory) {
    const std::string file = directory + kSyncDue;
    const UniqueFd mark(open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (mark.valid()) return true;
    Complain("cannot write %s: %s", file.c_str(), strerror(errno));
    return false;
}

const char* StateOf(const Finding& finding) {
    return finding.repair.is_mended ? "mended" : host::DatabaseStateName(finding.fault.state);
}

Record RecordOf(const Finding& finding) {
    const host::Salvage& salvage = finding.repair.salvage;
    Record record{{"database", host::DatabaseName(finding.database)},
                  {"state", StateOf(finding)},
                  {"fault", finding.fault.reason},
                  {"set_aside", finding.repair.set_aside}};
    for (const host::SalvagedTable& table : salvage.tables) {
        record.emplace_back("rows_" + table.name, table.rows);
        if (table.found > 0) record.emplace_back("found_" + table.name, table.found);
    }
    record.emplace_back("lost_pages", salvage.lost_pages);
    record.emplace_back("lost_rows", salvage.lost_rows);
    record.emplace_back("private_albums", salvage.private_albums);
    return record;
}

void Print(const std::vector<Finding>& findings, bool json) {
    Section section{"databases"};
    for (const Finding& finding : findings)
        section.records.push_back(RecordOf(finding));
    if (json) return PrintSections({section}, true);
    for (const Finding& finding : findings) {
        printf("%s is %s\n", host::DatabaseName(finding.database), StateOf(finding));
        if (finding.repair.is_mended) PrintSections({{"  saved", {RecordOf(finding)}}}, false);
    }
}

/// Mends one database, or says why it cannot be.  Returns a failure's exit code.
int Mend(const Context& context, const host::DatabaseEngine& engine, bool dry_run, Finding* finding) {
    const char* const name = host::DatabaseName(finding->database);
    DatabaseFault& fault = finding->fault;
    if (!finding->is_begun && fault.state != DatabaseState::kDamaged) {
        if (IsInOrder(*finding)) return kExitDone;
        const bool is_refused = fault.state == DatabaseState::kNotPermitted && engine.IsInFiles();
        Complain("%s%s", DatabaseFaultText(engine, finding->database, fault).c_str(),
                 is_refused ? RootHint().c_str() : "");
        return kExitDatabase;
    }
    if (dry_run || !engine.IsInFiles()) {
        if (finding->is_begun) fault = {DatabaseState::kDamaged, "its repair was interrupted"};
        Complain("%s", DatabaseFaultText(engine, finding->database, fault).c_str());
        return dry_run ? kExitDifferences : kExitDatabase;
    }
    if (IsBatchInTheWay(context.places, name)) return kExitDatabase;
    if (access(engine.place().c_str(), W_OK) != 0) {
        Complain("%s cannot be mended: no permission to write to %s%s", name, engine.place().c_str(),
                 RootHint().c_str());
        return kExitDatabase;
    }
    if (!MarkSyncDue(engine.place())) return kExitFiles;
    finding->repair = engine.Mend(finding->database, AlbumsOfShare);
    if (finding->repair.error.empty()) return kExitDone;
    Complain("%s", finding->repair.error.c_str());
    return finding->repair.is_refused ? kExitDatabase : kExitFiles;
}

/// Everything but the photo database's rows can be read from the files again.
bool HasLostForGood(const Finding& finding) {
    return finding.repair.is_mended && finding.database == KOLI_PHOTO_DB && !finding.repair.salvage.IsWhole();
}

int SyncAfter(const Context& context, const std::string& directory, const RepairOptions& options) {
    const int code = Sync(context, {}, {.wait = options.wait});
    if (code == kExitDone || code == kExitDifferences || code == kExitNoDaemon)
        unlink((directory + kSyncDue).c_str());
    else
        Complain("the databases have not been compared with all of the shares; the next repair does it");
    return code;
}

}  // namespace

int Repair(const Context& context, const RepairOptions& options) {
    std::string error;
    const auto engine = EngineOf(context.places, &error);
    if (engine == nullptr) {
        Complain("%s", error.c_str());
        return kExitDatabase;
    }
    std::vector<Finding> findings;
    for (const int database : host::kDatabases) {
        const host::DatabaseView view = engine->Look(database, host::DatabaseCheck::kThorough);
        findings.push_back({database, view.fault, view.is_repair_begun});
    }
    int failure = kExitDone;
    bool has_lost = false;
    for (Finding& finding : findings) {
        failure = std::max(failure, Mend(context, *engine, options.dry_run, &finding));
        has_lost |= HasLostForGood(finding);
    }
    Print(findings, context.json);
    const bool is_sync_due = engine->IsInFiles() && access((engine->place() + kSyncDue).c_str(), F_OK) == 0;
    if (failure != kExitDone || options.dry_run || !is_sync_due) return failure;
    const int code = SyncAfter(context, engine->place(), options);
    return code == kExitDone && has_lost ? static_cast<int>(kExitDifferences) : code;
}

}  // namespace koli::ctl
