#include "tools/ctl/repair.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/host/database_exchange.h"
#include "tools/ctl/batch_state.h"
#include "tools/ctl/output.h"
#include "tools/ctl/repair_database.h"
#include "tools/ctl/request_writer.h"
#include "tools/ctl/status.h"
#include "tools/ctl/store_reader.h"
#include "tools/ctl/sync.h"

namespace koli::ctl {
namespace {

using host::DatabaseState;

/// Stands in the databases' folder from the first exchange until what `sync` finds has been queued: a repair
/// that is killed between the two finds nothing damaged the next time.
constexpr const char kSyncDue[] = "/repair.sync-due";

struct Finding {
    host::DatabaseKind kind;
    host::DatabaseFault fault;
    bool is_begun;  // by an earlier repair
};

bool IsToBeMended(const Finding& finding) {
    return finding.is_begun || finding.fault.state == DatabaseState::kDamaged;
}

bool IsInOrder(const Finding& finding) {
    return finding.fault.state == DatabaseState::kSound || finding.fault.state == DatabaseState::kMissing;
}

std::vector<Finding> Look(const std::string& directory) {
    std::vector<Finding> findings;
    for (host::DatabaseKind& kind : host::DatabaseKinds()) {
        const std::string file = directory + "/" + kind.file_name;
        const bool is_begun = host::DatabaseExchange(file).IsDecided();
        host::DatabaseFault fault = host::DatabaseLook(file, kind.schema, host::DatabaseCheck::kThorough);
        findings.push_back({std::move(kind), std::move(fault), is_begun});
    }
    return findings;
}

/// A batch that is being executed is not interrupted, unless it waits for this very database.
bool IsBatchInTheWay(const Places& places, const std::string& name) {
    const BatchState batch = BatchStateOf(places, DaemonPid(places.pid_file));
    const bool waits_for_it =
        batch.kind == BatchState::kKept && batch.database.find(name) != std::string::npos;
    if (waits_for_it || batch.kind == BatchState::kNone || batch.kind == BatchState::kLeftOver) return false;
    Complain("%s cannot be mended now: the daemon is at work on a batch (see koliindexctl status)",
             name.c_str());
    return true;
}

bool MarkSyncDue(const std::string& directory) {
    const std::string file = directory + kSyncDue;
    const UniqueFd mark(open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (mark.valid()) return true;
    Complain("cannot write %s: %s", file.c_str(), strerror(errno));
    return false;
}

Record RecordOf(const RepairResult& result) {
    Record record{{"database", result.name},
                  {"state", result.is_mended ? "mended" : host::DatabaseStateName(result.fault.state)},
                  {"fault", result.fault.reason},
                  {"set_aside", result.set_aside}};
    for (const host::SalvageTable& table : result.salvage.tables) {
        record.emplace_back("rows_" + table.name, table.rows);
        if (table.found > 0) record.emplace_back("found_" + table.name, table.found);
    }
    record.emplace_back("lost_pages", result.salvage.lost_pages);
    record.emplace_back("lost_rows", result.salvage.lost_rows);
    record.emplace_back("private_albums", result.private_albums);
    return record;
}

void Print(const std::vector<RepairResult>& results, bool json) {
    Section section{"databases"};
    for (const RepairResult& result : results)
        section.records.push_back(RecordOf(result));
    if (json) return PrintSections({section}, true);
    for (const RepairResult& result : results) {
        printf("%s is %s\n", result.name.c_str(),
               result.is_mended ? "mended" : host::DatabaseStateName(result.fault.state));
        if (result.is_mended) PrintSections({{"  saved", {RecordOf(result)}}}, false);
    }
}

/// What is mended of one database, or why it cannot be.
RepairResult Mend(const Context& context, const std::string& directory, const Finding& finding,
                  bool dry_run) {
    RepairResult result{.name = finding.kind.file_name, .fault = finding.fault};
    if (!IsToBeMended(finding)) {
        if (IsInOrder(finding)) return result;
        Complain("%s", DatabaseFaultText(result.name, finding.fault).c_str());
        result.exit_code = kExitDatabase;
    } else if (dry_run) {
        if (finding.is_begun) result.fault = {DatabaseState::kDamaged, "its repair was interrupted"};
        Complain("%s", DatabaseFaultText(result.name, result.fault).c_str());
        result.exit_code = kExitDifferences;
    } else if (IsBatchInTheWay(context.places, result.name)) {
        result.exit_code = kExitDatabase;
    } else if (access(directory.c_str(), W_OK) != 0) {
        Complain("%s cannot be mended: no permission to write to %s", result.name.c_str(), directory.c_str());
        result.exit_code = kExitDatabase;
    } else if (!MarkSyncDue(directory)) {
        result.exit_code = kExitFiles;
    } else {
        return RepairDatabase(directory, finding.kind, finding.fault);
    }
    return result;
}

/// Everything but the photo database's rows can be read from the files again.
bool HasLostForGood(const RepairResult& result) {
    return result.is_mended && result.name == "photo.db" && !result.salvage.IsWhole();
}

int SyncAfter(const Context& context, const std::string& directory, const RepairOptions& options) {
    const int code = Sync(context, {}, {.wait = options.wait});
    if (code == kExitDone || code == kExitDifferences || code == kExitNoDaemon)
        unlink((directory + kSyncDue).c_str());
    else
        Complain("the databases have not been compared with the shares; the next repair does it");
    return code;
}

}  // namespace

int Repair(const Context& context, const RepairOptions& options) {
    std::string error;
    const std::string directory = DatabasesFolder(context.places, &error);
    if (directory.empty()) {
        Complain("%s", error.c_str());
        return kExitDatabase;
    }
    std::vector<RepairResult> results;
    int failure = kExitDone;
    bool has_lost = false;
    for (const Finding& finding : Look(directory)) {
        results.push_back(Mend(context, directory, finding, options.dry_run));
        failure = std::max(failure, results.back().exit_code);
        has_lost |= HasLostForGood(results.back());
    }
    Print(results, context.json);
    const bool is_sync_due = access((directory + kSyncDue).c_str(), F_OK) == 0;
    if (failure != kExitDone || options.dry_run || !is_sync_due) return failure;
    const int code = SyncAfter(context, directory, options);
    return code == kExitDone && has_lost ? static_cast<int>(kExitDifferences) : code;
}

}  // namespace koli::ctl
