#include "tools/ctl/status_look.h"

#include <cerrno>
#include <cmath>
#include <ctime>

#include "base/line_count.h"
#include "base/regular_file.h"
#include "tools/ctl/request_writer.h"

namespace koli::ctl {
namespace {

constexpr int64_t kFirstRate = 1000;  // milliseconds after which a rate says something

int64_t NowMs() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

/// Lines of a queue file, as far as it is long now, 0 without one; -1 when it cannot be read: that says
/// nothing about what waits.
int64_t CountLines(const std::string& file) {
    const RegularFile queue(file.c_str());
    if (!queue.ok()) return errno == ENOENT ? 0 : -1;
    return LineCount(queue.descriptor(), queue.size());
}

const char* NameOf(ShareState::Kind kind) {
    switch (kind) {
        case ShareState::kPending:
            return "changes pending";
        case ShareState::kInStep:
            return "in step";
        case ShareState::kAway:
            return "not there";
    }
    return "";
}

std::string StateText(const ShareState& share) {
    const std::string time = TimeText(share.in_step);
    if (share.kind == ShareState::kInStep) return "in step since " + time;
    return NameOf(share.kind) + (time.empty() ? "" : ", in step until " + time);
}

void AddKept(const BatchState& batch, Record* record) {
    if (batch.kind != BatchState::kKept) return;
    record->emplace_back("kept_because_of", batch.database);
    record->emplace_back("kept_reason", batch.reason);
    record->emplace_back("kept_since", TimeText(batch.since));
    record->emplace_back("next_attempt", TimeText(batch.retry));
}

void AddWork(const StatusLook& look, Record* record) {
    const WorkReport& report = look.report;
    if (look.IsAtWork()) {
        record->emplace_back("requests_done", report.lines_done);
        record->emplace_back("batch_since", TimeText(report.batch_begun / 1000));
        record->emplace_back("files_done", report.files);
        record->emplace_back("files_per_second", Field::Real(look.FilesPerSecond()));
        record->emplace_back("problems_in_batch", report.problems);
        record->emplace_back("current_path", report.path);
    }
    if (!look.is_reported || report.problem_time == 0) return;
    record->emplace_back("last_problem", report.problem_path);
    record->emplace_back("last_problem_reason", report.problem_reason);
    record->emplace_back("last_problem_time", TimeText(report.problem_time / 1000));
}

}  // namespace

double StatusLook::FilesPerSecond() const {
    const int64_t elapsed = IsAtWork() ? NowMs() - report.batch_begun : 0;
    if (elapsed < kFirstRate) return 0;
    return std::round(static_cast<double>(report.files) * 10'000 / static_cast<double>(elapsed)) / 10;
}

StatusLook StatusLookNow(const Places& places) {
    StatusLook look;
    look.pid = DaemonPid(places.pid_file);
    if (look.pid > 0) look.since = ChangeTime(places.pid_file);
    look.waiting = CountLines(places.queue);
    look.is_reported = WorkReportOf(places, look.pid, &look.report);
    look.batch = BatchStateOf(places, look.pid);
    // A batch may be long: while the daemon tells, nobody has to count.
    look.in_batch = look.IsAtWork() ? look.report.lines : CountLines(places.batch);
    look.watchers = RunningWatchers(places.watchers);
    return look;
}

Record RecordOf(const StatusLook& look) {
    Record record;
    record.emplace_back("daemon", look.pid > 0 ? "running" : "not running");
    record.emplace_back("pid", int64_t{look.pid});
    record.emplace_back("since", TimeText(look.since));
    if (look.waiting >= 0) record.emplace_back("requests_waiting", look.waiting);
    record.emplace_back("batch", BatchStateName(look.batch.kind));
    if (look.in_batch >= 0) record.emplace_back("requests_in_batch", look.in_batch);
    AddKept(look.batch, &record);
    AddWork(look, &record);
    return record;
}

Section WatchedOf(const StatusLook& look) {
    Section section{"watched"};
    for (const RunningWatcher& watcher : look.watchers)
        for (const ShareState& share : watcher.shares)
            section.records.push_back({{"path", share.path},
                                       {"state", NameOf(share.kind)},
                                       {"in_step_as_of", TimeText(share.in_step)},
                                       {"pid", int64_t{watcher.pid}}});
    return section;
}

Record WatchedTexts(const StatusLook& look) {
    Record record;
    for (const RunningWatcher& watcher : look.watchers)
        for (const ShareState& share : watcher.shares)
            record.emplace_back("watched", share.path + ": " + StateText(share));
    return record;
}

}  // namespace koli::ctl
