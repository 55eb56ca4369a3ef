#include "tools/ctl/sync.h"

#include <algorithm>
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
    std::vector<std::string> compared;
    std::vector<Record> skipped;  // tops that could not be compared
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

/// The folders below which everything may be gone, as the daemon knows them.  False, with a complaint, when
/// one of them holds nothing that is compared.
bool MayBeEmpty(const std::vector<std::string>& given, const std::vector<std::string>& tops,
                std::vector<std::string>* allowed) {
    for (const std::string& path : given) {
        allowed->push_back(path.empty() ? "" : DaemonPath(path));
        const std::string& folder = allowed->back();
        if (std::ranges::any_of(tops, [&](const std::string& top) { return IsAtOrBelow(top, folder); }))
            continue;
        Complain("--allow-empty %s: it is none of the folders that are compared", path.c_str());
        return false;
    }
    return true;
}

/// Complains about a folder that was not compared, and notes it.
void Skip(const std::string& top, const CompareResult& result, std::vector<Record>* skipped) {
    const bool is_empty = result.status == CompareResult::kTopEmpty;
    const std::string reason =
        is_empty ? "it is missing or empty, but files are stored below it" : strerror(result.error);
    if (is_empty)
        Complain("%s is left out: %s; is it mounted? (--allow-empty %s removes them)", top.c_str(),
                 reason.c_str(), top.c_str());
    else
        Complain("%s is left out: it cannot be read: %s", top.c_str(), reason.c_str());
    skipped->push_back({{"path", top}, {"reason", reason}});
}

/// Compares every top before anything is queued.
int Compare(const StoreReader& store, const std::vector<std::string>& tops,
            const std::vector<std::string>& allow_empty, SyncPlan* plan, Totals* totals) {
    for (const std::string& top : tops) {
        const bool may_be_empty = std::ranges::any_of(
            allow_empty, [&top](const std::string& folder) { return IsAtOrBelow(top, folder); });
        const SyncPlan::Mark before = plan->Here();
        const CompareResult result =
            TreeCompare(store, top, {.albums = true, .allow_empty = may_be_empty},
                        [plan](Change change, const std::string& path) { plan->Add(change, path); });
        if (const int code = StoreResult(store, kExitDone); code != kExitDone) return code;
        if (result.status != CompareResult::kCompared) {
            plan->BackTo(before);
            Skip(top, result, &totals->skipped);
            continue;
        }
        totals->compared.push_back(top);
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
            {"kept_rows", totals.kept},
            {"skipped", static_cast<int64_t>(totals.skipped.size())}};
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
    PrintSections({{"summary", {SummaryOf(plan, totals)}, true},
                   {"differences", {}, false, each},
                   {"skipped", totals.skipped}},
                  true);
}

/// Prints the differences, or queues what removes them.
int Queue(const Context& context, SyncPlan plan, Totals totals, const SyncOptions& options) {
    if (options.dry_run || plan.empty()) {
        if (context.json || !totals.compared.empty()) PrintPlan(context, plan, totals);
        return plan.empty() ? kExitDone : kExitDifferences;
    }
    if (!context.json) PrintRecord(SummaryOf(plan, totals), false);
    if (plan.requests() == 0) return kExitDifferences;
    Submission submission{plan.TakeLines(), plan.requests(), std::move(totals.compared)};
    submission.told = {{"skipped", std::move(totals.skipped)}};
    return Submit(context, submission, options.wait);
}

}  // namespace

int Sync(const Context& context, const std::vector<std::string>& paths, const SyncOptions& options) {
    const std::vector<std::string> tops = paths.empty() ? Shares() : TopsOf(paths);
    if (tops.empty()) {
        if (paths.empty()) Complain("there is no share below /var/services; name a folder");
        return kExitUsage;
    }
    std::vector<std::string> allow_empty;
    if (!MayBeEmpty(options.allow_empty, tops, &allow_empty)) return kExitUsage;
    StoreReader store;
    if (!OpenStore(context, &store)) return kExitDatabase;
    SyncPlan plan(options.dry_run ? SyncPlan::kDifferences : SyncPlan::kRequests);
    Totals totals;
    if (const int code = Compare(store, tops, allow_empty, &plan, &totals); code != kExitDone) return code;
    if (totals.unreadable > 0)
        Complain("%s could not be read; what is stored below stays",
                 Counted(totals.unreadable, "folder").c_str());
    const int unread = totals.unreadable > 0 || !totals.skipped.empty() ? kExitFiles : kExitDone;
    return std::max(unread, Queue(context, std::move(plan), std::move(totals), options));
}

}  // namespace koli::ctl
