#include <cstdio>

#include "platform/host/tables.h"
#include "tools/ctl/status.h"
#include "tools/ctl/status_look.h"
#include "tools/ctl/store_reader.h"

namespace koli::ctl {
namespace {

/// A label's value: bytes that are no UTF-8 and control characters as Printable gives them.
std::string Label(const char* name, const std::string& value) {
    std::string text = std::string(name) + "=\"";
    for (const char c : Printable(value)) {
        if (c == '\\' || c == '"') text += '\\';
        text += c;
    }
    return text + '"';
}

/// A metric; its samples follow.
void Head(const char* name, const char* type, const char* help) {
    printf("# HELP koliindexd_%s %s\n# TYPE koliindexd_%s %s\n", name, help, name, type);
}

void Sample(const char* name, const std::string& labels, int64_t value) {
    printf("koliindexd_%s%s %lld\n", name, labels.empty() ? "" : ("{" + labels + "}").c_str(),
           static_cast<long long>(value));
}

void Metric(const char* name, const char* type, const char* help, int64_t value) {
    Head(name, type, help);
    Sample(name, "", value);
}

void Gauge(const char* name, const char* help, int64_t value) {
    Metric(name, "gauge", help, value);
}

void Counter(const char* name, const char* help, int64_t value) {
    Metric(name, "counter", help, value);
}

void PrintWork(const WorkReport& report) {
    const bool is_at_work = report.batch_begun != 0;
    Gauge("batch_requests_done", "Requests of the batch at work that are done.",
          is_at_work ? report.lines_done : 0);
    Gauge("batch_files", "Files that the batch at work has looked at.", is_at_work ? report.files : 0);
    Counter("batches_total", "Batches since the daemon's start, attempts included.", report.all_batches);
    Counter("requests_total", "Requests executed since the daemon's start.", report.all_lines);
    Counter("files_total", "Files looked at since the daemon's start.", report.all_files);
    Counter("file_problems_total",
            "Files of which something could not be read or written, since the daemon's start.",
            report.all_problems);
    Head("last_batch_duration_seconds", "gauge", "How long the last batch took.");
    printf("koliindexd_last_batch_duration_seconds %.3f\n",
           static_cast<double>(report.batch_duration) / 1000);
}

void PrintWatched(const StatusLook& look) {
    Head("share_in_step", "gauge", "Whether the databases are in step with a watched folder.");
    for (const RunningWatcher& watcher : look.watchers)
        for (const ShareState& share : watcher.shares)
            Sample("share_in_step", Label("path", share.path), share.kind == ShareState::kInStep ? 1 : 0);
    Head("share_in_step_timestamp_seconds", "gauge", "When that began, or ended; 0 = it never was.");
    for (const RunningWatcher& watcher : look.watchers)
        for (const ShareState& share : watcher.shares)
            Sample("share_in_step_timestamp_seconds", Label("path", share.path), share.in_step);
}

using Views = std::vector<std::pair<std::string, host::DatabaseView>>;

bool IsSound(const host::DatabaseView& view) {
    return view.fault.state == host::DatabaseState::kSound ||
           view.fault.state == host::DatabaseState::kMissing;
}

void PrintDatabases(const Views& views) {
    Head("database_sound", "gauge",
         "Whether a database can be read and nothing is seen to be wrong with it.");
    for (const auto& [name, view] : views)
        Sample("database_sound",
               Label("database", name) + "," + Label("state", host::DatabaseStateName(view.fault.state)),
               IsSound(view) ? 1 : 0);
    Head("rows", "gauge", "Rows of a table.");
    int64_t problems = 0;
    for (const auto& [name, view] : views)
        for (const auto& [table, rows] : view.counts) {
            if (table == host::kProblemTable) problems = rows;
            Sample("rows", Label("database", name) + "," + Label("table", table), rows);
        }
    Gauge("problems", "Files that koliindexctl problems lists.", problems);
}

}  // namespace

int StatusMetrics(const Context& context) {
    const StatusLook look = StatusLookNow(context.places);
    Gauge("up", "Whether the daemon runs.", look.pid > 0 ? 1 : 0);
    Gauge("start_time_seconds", "When it was started.", look.since);
    if (look.waiting >= 0) Gauge("requests_waiting", "Requests in the queue.", look.waiting);
    if (look.in_batch >= 0) Gauge("batch_requests", "Requests of the batch.", look.in_batch);
    Gauge("batch_kept", "Whether a batch is kept and tried again.",
          look.batch.kind == BatchState::kKept ? 1 : 0);
    if (look.is_reported) PrintWork(look.report);
    PrintWatched(look);

    std::string error;
    const auto engine = EngineOf(context.places, &error);
    if (engine == nullptr) {
        Complain("%s", error.c_str());
        return kExitDatabase;
    }
    Views views;
    bool is_sound = true;
    for (const int database : host::kDatabases) {
        views.emplace_back(host::DatabaseName(database), engine->Look(database, host::DatabaseCheck::kQuick));
        is_sound &= IsSound(views.back().second);
    }
    PrintDatabases(views);
    if (!is_sound) return kExitDatabase;
    return look.pid > 0 ? kExitDone : kExitNoDaemon;
}

}  // namespace koli::ctl
