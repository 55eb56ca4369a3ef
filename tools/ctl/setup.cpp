#include "tools/ctl/setup.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "index/record/share_path.h"
#include "tools/ctl/membership.h"
#include "tools/ctl/output.h"
#include "tools/ctl/request_line.h"

namespace koli::ctl {
namespace {

constexpr const char* kKindNames[] = {"folder", "link", "file"};             // by SetupStep::Kind
constexpr const char* kStateNames[] = {"to make", "present", "in the way"};  // by SetupStep::State

bool Has(const std::vector<SetupStep>& steps, SetupStep::State state) {
    return std::ranges::any_of(steps, [state](const SetupStep& step) { return step.state == state; });
}

void PrintSteps(const Context& context, const std::vector<SetupStep>& steps, bool is_done) {
    RowPrinter rows({"state", "kind", "path", "target"}, context.json);
    for (const SetupStep& step : steps) {
        const bool is_made = is_done && step.state == SetupStep::kMissing;
        rows.Row({is_made ? "made" : kStateNames[step.state], kKindNames[step.kind], step.path,
                  step.kind == SetupStep::kLink ? step.value : ""});
    }
}

int Undo(const Context& context, const SetupRoot& root) {
    std::vector<SetupUndone> undone;
    std::string error;
    const bool is_undone = SetupUndo(root, &undone, &error);
    bool is_something_kept = false;
    if (!undone.empty()) {
        RowPrinter rows({"state", "kind", "path", "reason"}, context.json);
        for (const SetupUndone& one : undone) {
            rows.Row(
                {one.kept.empty() ? "removed" : "stays", kKindNames[one.step.kind], one.step.path, one.kept});
            is_something_kept = is_something_kept || !one.kept.empty();
        }
    }
    if (!is_undone) {
        const bool is_refused = access(root.Manifest().c_str(), W_OK) != 0 && errno == EACCES;
        Complain("%s%s", error.c_str(), is_refused ? RootHint().c_str() : "");
        return kExitFiles;
    }
    return is_something_kept ? kExitDifferences : kExitDone;
}

/// Why the volume cannot be set up; null when it can.
const char* VolumeRefusal(const SetupRoot& root, const std::string& volume) {
    struct stat status;
    if (PathRefusal(volume) != nullptr || volume == "/") return "it cannot be a volume";
    if (volume.find_first_of(":\t") != std::string::npos) return "a volume's name cannot hold a ':' or a tab";
    if (stat(root.Path(volume).c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
        return "there is no such folder; make it (mkdir), or mount the disk that belongs there";
    return nullptr;
}

}  // namespace

int Setup(const Context& context, const std::string& given, const SetupOptions& options) {
    if (options.undo) return Undo(context, options.root);
    if (given.empty()) {
        Complain("setup needs a volume (see koliindexctl setup --help)");
        return kExitUsage;
    }
    const std::string volume = DaemonPath(given);
    if (const char* refusal = VolumeRefusal(options.root, volume); refusal != nullptr) {
        Complain("%s: %s", given.c_str(), refusal);
        return kExitUsage;
    }
    if (IsPhotoSharePath((volume + "/photo").c_str()) == 0)
        Complain(
            "the photo library takes only volumes with a name of seven characters, such as /volume1: pictures in %s get into the media store alone",
            volume.c_str());
    const std::vector<SetupStep> steps = SetupPlan(options.root, volume);
    if (!options.apply || Has(steps, SetupStep::kInTheWay)) {
        PrintSteps(context, steps, false);
        if (Has(steps, SetupStep::kInTheWay)) {
            Complain("something else is in the way; nothing has been changed");
            return kExitFiles;
        }
        return Has(steps, SetupStep::kMissing) ? kExitDifferences : kExitDone;
    }
    std::string error;
    if (!SetupApply(options.root, steps, &error)) {
        Complain("%s%s (setup --undo takes back what has been made)", error.c_str(), RootHint().c_str());
        return kExitFiles;
    }
    PrintSteps(context, steps, true);
    return kExitDone;
}

}  // namespace koli::ctl
