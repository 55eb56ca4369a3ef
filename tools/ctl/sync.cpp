#include "tools/ctl/sync.h"

#include <cstdio>
#include <cstring>

#include "tools/ctl/output.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/sync_plan.h"
#include "tools/ctl/tree_compare.h"

namespace koli::ctl {
namespace {

struct Totals {
    int64_t files = 0, unreadable = 0, kept = 0;
};

/// The folders as the daemon knows them; complains and returns none when one cannot be queued.
std::vector<std::string> TopsOf(const std::vector<std::string>& given) {
    std::vector<std::string> tops;
    for (const std::string& path : given) {
        tops.push_back(path.empty() ? "" : DaemonPath(path));
        if (const char* refusal = PathRefusal(tops.back()); refusal != nullptr) {
            Complain("%s: %s", path.c_str(), refusal);
            return {};
        }
    }
    return WithoutNested(std::move(tops));
}

std::vector<std::string> Shares() {
    std::vector<std::string> tops;
    for (const char* link : {paths::kMusicShare, paths::kVideoShare, paths::kPhotoShare})
        if (std::string target = VolumePath(link); target != link) tops.push_back(std::move(target));
    return WithoutNested(std::move(tops));
}

int ComplainAbout(const std::string& top, const CompareResult& result) {
    if (result.status == CompareResult::kTopEmpty)
        Complain(
            "%s is missing or empty, but files are stored below it: is it mounted? (--allow-empty removes them)",
            top.c_str());
    else
        Complain("cannot read %s: %s", top.c_str(), strerror(result.error));
    return kExitFiles;
}

/// Compares every top before anything is queued.
int Compare(const StoreReader& store, const std::vector<std::string>& tops, const SyncOptions& options,
            SyncPlan* plan, Totals* totals) {
    const CompareOptions compare{.albums = true, .allow_empty = options.allow_empty};
    for (const std::string& top : tops) {
        const CompareResult result = TreeCompare(
            store, top, compare, [plan](Change change, const std::string& path) { plan->Add(change, path); });
        if (const int code = StoreResult(store, kExitDone); code != kExitDone) return code;
        if (result.status != CompareResult::kCompared) return ComplainAbout(top, result);
        totals->files += result.files;
        totals->unreadable += result.unreadable;
        totals->kept += result.kept;
    }
    return kExitDone;
}

Record SummaryOf(const SyncPlan& plan, const Totals& totals) {
    return {{"files", totals.files},
            {"new", plan.Count(Change::kNewFile)},
            {"new_folders", plan.Count(Change::kNewFolder) + plan.Count(Change::kUnrecordedFolder)},
            {"changed", plan.Count(Change::kChangedFile)},
            {"unread", plan.Count(Change::kUnread)},
            {"without_cover", plan.Count(Change::kNoCover)},
            {"without_album", plan.Count(Change::kNoAlbum)},
            {"gone", plan.Count(Change::kGoneFile) + plan.Count(Change::kGoneTree)},
            {"requests", plan.requests()},
            {"not_queueable", plan.uncarried()},
            {"unreadable_folders", totals.unreadable},
            {"kept_rows", totals.kept}};
}

void PrintPlan(const Context& context, const SyncPlan& plan, const Totals& totals) {
    if (!context.json) {
        plan.EachDifference([](Change change, const std::string& path) {
            printf("%-17s  %s\n", ChangeName(change), Printable(path).c_str());
        });
        PrintRecord(SummaryOf(plan, totals), false);
        return;
    }
    const auto each = [&plan](const RecordHandler& print) {
        plan.EachDifference([&print](Change change, const std::string& path) {
            print({{"change", ChangeName(change)}, {"path", path}});
        });
    };
    PrintSections({{"summary", {SummaryOf(plan, totals)}, true}, {"differences", {}, false, each}}, true);
}

}  // namespace

int Sync(const Context& context, const std::vector<std::string>& paths, const SyncOptions& options) {
    const std::vector<std::string> tops = paths.empty() ? Shares() : TopsOf(paths);
    if (tops.empty()) {
        if (paths.empty()) Complain("there is no share below /var/services; name a folder");
        return kExitUsage;
    }
    StoreReader store;
    if (!OpenStore(context, &store)) return kExitDatabase;
    SyncPlan plan(options.dry_run ? SyncPlan::kDifferences : SyncPlan::kRequests);
    Totals totals;
    if (const int code = Compare(store, tops, options, &plan, &totals); code != kExitDone) return code;
    if (totals.unreadable > 0)
        Complain("%lld folders could not be read; what is stored below them stays",
                 static_cast<long long>(totals.unreadable));

    if (options.dry_run || plan.empty()) {
        PrintPlan(context, plan, totals);
        return plan.empty() ? kExitDone : kExitDifferences;
    }
    if (!context.json) PrintRecord(SummaryOf(plan, totals), false);
    if (plan.requests() == 0) return kExitDifferences;
    const Submission submission{plan.TakeLines(), plan.requests(), tops};
    return Submit(context, submission, options.wait);
}

}  // namespace koli::ctl
