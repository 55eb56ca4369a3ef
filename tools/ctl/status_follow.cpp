#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <ctime>

#include "tools/ctl/progress.h"
#include "tools/ctl/status.h"
#include "tools/ctl/status_look.h"
#include "tools/ctl/terminal.h"

namespace koli::ctl {
namespace {

// The rows of a large library take a while to count: that many times as long they are not counted again.
constexpr double kRest = 20;

double Now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

/// Waits for a second; true when the program is to end.  SIGTERM and SIGINT are blocked.
bool IsStopped(const sigset_t& signals) {
    constexpr timespec kSecond{1, 0};
    return sigtimedwait(&signals, nullptr, &kSecond) > 0;
}

/// What the databases hold, looked at when a batch has ended, and not all the time.
class DatabaseFields {
  public:
    const Record& Of(const Context& context, const StatusLook& look) {
        const double now = Now();
        const bool is_old = look.report.all_batches != batches_ || look.pid != pid_;
        if (!record_.empty() && (!is_old || now < next_)) return record_;
        record_.clear();
        AddDatabases(context, false, &record_);
        next_ = now + (Now() - now) * (1 + kRest);
        batches_ = look.report.all_batches;
        pid_ = look.pid;
        return record_;
    }

  private:
    Record record_;
    double next_ = 0;
    int64_t batches_ = 0;
    int pid_ = 0;
};

/// One line of what changes.
std::string ChangeLine(const StatusLook& look) {
    std::string line = look.pid > 0 ? "running" : "not running";
    if (look.waiting > 0) line += ", " + Counted(look.waiting, "request") + " waiting";
    if (look.batch.kind != BatchState::kNone)
        line += std::string(", batch ") + BatchStateName(look.batch.kind);
    if (look.batch.kind == BatchState::kKept) line += ": " + look.batch.reason;
    if (look.IsAtWork()) {
        line += ", " + std::to_string(look.report.lines_done) + " of " +
                Counted(look.report.lines, "request") + " done, " + Counted(look.report.files, "file");
        if (look.report.problems > 0) line += ", " + Counted(look.report.problems, "problem");
        line += RateText(look.FilesPerSecond());
        if (look.report.path[0] != '\0') line += std::string(", ") + look.report.path;
    }
    for (const RunningWatcher& watcher : look.watchers)
        for (const ShareState& share : watcher.shares)
            if (share.kind != ShareState::kInStep) line += ", " + share.path + " not in step";
    return line;
}

/// Draws what there is room for over what was drawn before.
void Draw(const Record& record, size_t* drawn) {
    const TerminalSize size = TerminalSizeOf(STDOUT_FILENO);
    const std::vector<std::string> lines = RecordLines(record, size.columns - 1);
    const size_t count = std::min(lines.size(), size.rows - 1);
    std::string text;
    if (const size_t up = std::min(*drawn, size.rows - 1); up > 0) text = "\033[" + std::to_string(up) + "A";
    text += "\r";
    for (size_t i = 0; i < count; ++i)
        text += lines[i] + "\033[K\n";
    printf("%s\033[J", text.c_str());
    *drawn = count;
}

void Append(const Record& more, Record* record) {
    record->insert(record->end(), more.begin(), more.end());
}

void PrintChange(const std::string& line, bool json, std::string* last) {
    if (line == *last) return;
    if (json)
        printf("%s\n", line.c_str());
    else
        printf("%s  %s\n", TimeText(time(nullptr)).c_str(), Printable(line).c_str());
    *last = line;
}

}  // namespace

int StatusFollow(const Context& context) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    const bool is_drawn = !context.json && IsDrawable(STDOUT_FILENO);
    DatabaseFields databases;
    std::string last;
    size_t drawn = 0;
    do {
        const StatusLook look = StatusLookNow(context.places);
        if (!is_drawn && !context.json) {
            PrintChange(ChangeLine(look), false, &last);
        } else {
            Record record = RecordOf(look);
            // On a small terminal what comes last is not seen.
            if (is_drawn) Append(WatchedTexts(look), &record);
            Append(databases.Of(context, look), &record);
            if (is_drawn)
                Draw(record, &drawn);
            else
                PrintChange(RecordJson(record, {WatchedOf(look)}, true), true, &last);
        }
        if (fflush(stdout) != 0) return kExitFiles;
    } while (!IsStopped(signals));
    return kExitDone;
}

}  // namespace koli::ctl
