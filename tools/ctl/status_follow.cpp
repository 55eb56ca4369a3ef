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

constexpr int64_t kCountEvery = 60;  // seconds; the rows of a large library take a while to count

/// Waits for a second; true when the program is to end.  SIGTERM and SIGINT are blocked.
bool IsStopped(const sigset_t& signals) {
    constexpr timespec kSecond{1, 0};
    return sigtimedwait(&signals, nullptr, &kSecond) > 0;
}

/// What the databases hold, looked at when a batch has ended, and not all the time.
class DatabaseFields {
  public:
    const Record& Of(const Context& context, const StatusLook& look) {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        const bool is_old = look.report.all_batches != batches_ || look.pid != pid_;
        if (!record_.empty() && (!is_old || now.tv_sec < next_)) return record_;
        record_.clear();
        AddDatabases(context, false, &record_);
        next_ = now.tv_sec + kCountEvery;
        batches_ = look.report.all_batches;
        pid_ = look.pid;
        return record_;
    }

  private:
    Record record_;
    int64_t next_ = 0;
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

/// Draws the lines over the ones before, as many as there is room for.
void Draw(const std::vector<std::string>& lines, size_t* drawn) {
    const TerminalSize size = TerminalSizeOf(STDOUT_FILENO);
    const size_t count = std::min(lines.size(), size.rows - 1);
    std::string text;
    if (const size_t up = std::min(*drawn, size.rows - 1); up > 0) text = "\033[" + std::to_string(up) + "A";
    text += "\r";
    for (size_t i = 0; i < count; ++i)
        text += CutMiddle(lines[i], size.columns - 1) + "\033[K\n";
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
                Draw(RecordLines(record), &drawn);
            else
                PrintChange(RecordJson(record, {WatchedOf(look)}, true), true, &last);
        }
        if (fflush(stdout) != 0) return kExitFiles;
    } while (!IsStopped(signals));
    return kExitDone;
}

}  // namespace koli::ctl
