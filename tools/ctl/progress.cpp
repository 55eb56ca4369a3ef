#include "tools/ctl/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "tools/ctl/batch_state.h"
#include "tools/ctl/output.h"
#include "tools/ctl/request_writer.h"
#include "tools/ctl/store_reader.h"

namespace koli::ctl {
namespace {

constexpr double kSecondsPerLine = 5;  // where there is no terminal
constexpr double kRests = 20;          // times as long as it took to count what is stored of a large library
constexpr int kBarWidth = 24;

double Now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

std::string Bar(int64_t part, int64_t whole) {
    const int64_t filled = whole > 0 ? std::clamp<int64_t>(part * kBarWidth / whole, 0, kBarWidth) : 0;
    return "[" + std::string(static_cast<size_t>(filled), '#') +
           std::string(static_cast<size_t>(kBarWidth - filled), '.') + "] ";
}

}  // namespace

Progress::Progress(const Context& context, const Submission& submission, int64_t found)
    : context_(context), submission_(submission), found_(found), is_terminal_(isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
    if (is_terminal_ && is_told_) fprintf(stderr, "\r\033[K");
}

/// Why nothing happens yet; "" when the requests are being executed.
std::string Progress::WaitingLine(bool begun) const {
    const BatchState batch = BatchStateOf(context_.places, DaemonPid(context_.places.pid_file));
    const std::string queued = begun ? "" : "queued, behind a batch that is ";
    if (batch.kind == BatchState::kKept)
        return (begun ? "the batch is " : queued) + "kept: " + batch.database +
               (batch.database.empty() ? "" : ": ") + batch.reason + "; the daemon tries again at " +
               TimeText(batch.retry);
    if (begun) return "";
    return batch.kind == BatchState::kNone ? "queued, the daemon begins in about ten seconds"
                                           : queued + "being executed";
}

/// How much there is of what was asked for.
std::string Progress::StoredLine() {
    int64_t stored = 0, unparsable = 0;
    StoreReader store;
    if (store.Open(context_.places))
        for (const std::string& path : submission_.present) {
            stored += submission_.media_store ? store.FilesBelow(path) : store.CountBelow("photo_info", path);
            unparsable += submission_.media_store ? store.CountBelow("problem", path) : 0;
        }
    // What the daemon cannot store there either is told at the end.
    if (const std::string error = store.error(); !error.empty()) return "being executed; " + error;
    return RateLine(stored, unparsable);
}

std::string Progress::RateLine(int64_t stored, int64_t unparsable) {
    if (stored_before_ < 0) {
        stored_before_ = stored;
        began_ = Now();
    }
    const double seconds = Now() - began_;
    const double rate = seconds > 0 ? static_cast<double>(stored - stored_before_) / seconds : 0;
    std::string line = is_terminal_ ? Bar(stored, found_) : "";
    line += std::to_string(stored) + " of " + std::to_string(found_) + " files stored, " +
            std::to_string(unparsable) + " unparsable";
    char text[64];
    if (rate > 0) {
        const double left = static_cast<double>(std::max<int64_t>(found_ - stored, 0)) / rate;
        snprintf(text, sizeof text, ", %.0f/s, %.0f s left", rate, std::min(left, 1e9));
        line += text;
    }
    return line;
}

void Progress::Tell(bool begun) {
    const double now = Now();
    if (now < next_) return;
    std::string line = WaitingLine(begun);
    if (line.empty()) line = StoredLine();
    if (is_terminal_ || line != line_)
        fprintf(stderr, is_terminal_ ? "\r%s\033[K" : "koliindexctl: %s\n", Printable(line).c_str());
    line_ = std::move(line);
    is_told_ = true;
    const double end = Now();
    next_ = std::max(is_terminal_ ? 0 : now + kSecondsPerLine, end + kRests * (end - now));
}

}  // namespace koli::ctl
