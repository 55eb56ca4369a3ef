#include "tools/ctl/progress.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "base/line_count.h"
#include "tools/ctl/batch_state.h"
#include "tools/ctl/output.h"
#include "tools/ctl/terminal.h"

namespace koli::ctl {
namespace {

constexpr double kFirstRate = 1;     // seconds after which a rate says something
constexpr size_t kShortestName = 8;  // columns

WorkShare ShareOf(const QueuedBatch& batch) {
    struct stat status {};
    fstat(batch.file.get(), &status);
    return {status.st_dev, status.st_ino, batch.begin, batch.end};
}

/// "3 requests come before", as far as that can be said.
std::string Ahead(int64_t requests) {
    return requests > 0 ? Counted(requests, "request") + (requests == 1 ? " comes" : " come") + " before"
                        : "other requests come before";
}

}  // namespace

double MonotonicSeconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

size_t BarColumns(size_t columns) {
    return columns >= 76 ? 24 : columns >= 56 ? 12 : 0;
}

void WorkShare::Look(const WorkReport& report, double now) {
    const bool is_batch =
        report.batch_begun != 0 && report.batch_device == device_ && report.batch_inode == inode_;
    where_ = !is_batch                    ? kElsewhere
             : report.line_begin < begin_ ? kBefore
             : report.line_begin >= end_  ? kBehind
                                          : kInside;
    if (where_ == kBefore || where_ == kElsewhere) began_ = rate_ = 0;
    if (where_ == kElsewhere) is_known_ = false;  // executed again the batch may look at fewer files
    if (where_ == kElsewhere || where_ == kBehind) return;
    // A look may come when the first of the requests are done already.
    const bool is_at_begin = report.line_begin <= begin_;
    if (is_at_begin || !is_known_) {
        const int64_t of_line = where_ == kInside ? report.files_in_line : 0;
        files_before_ = begin_ == 0 ? 0 : report.files - of_line;
        problems_before_ = begin_ == 0 ? 0 : report.problems;
        is_known_ = true;
    }
    files_ = report.files - files_before_;
    problems_ = report.problems - problems_before_;
    if (where_ == kBefore) return;
    if (began_ == 0) {
        began_ = now;
        files_then_ = files_;
    }
    if (now - began_ >= kFirstRate) rate_ = static_cast<double>(files_ - files_then_) / (now - began_);
}

std::string DurationText(double seconds) {
    const auto whole = static_cast<int64_t>(std::clamp(seconds, 0.0, 1e9));
    if (whole < 100) return std::to_string(whole) + " s";
    const int64_t minutes = (whole + 30) / 60;
    if (minutes < 100) return std::to_string(minutes) + " min";
    return std::to_string(minutes / 60) + " h " + std::to_string(minutes % 60) + " min";
}

std::string RateText(double files_per_second) {
    char text[32];
    if (files_per_second >= 0.95)
        snprintf(text, sizeof text, ", %.0f/s", files_per_second);
    else if (files_per_second * 60 >= 0.95)
        snprintf(text, sizeof text, ", %.0f/min", files_per_second * 60);
    else
        return "";
    return text;
}

Progress::Progress(const Context& context, const QueuedBatch& batch, int64_t found)
    : context_(context),
      batch_(batch),
      found_(found),
      is_drawn_(IsDrawable(STDERR_FILENO)),
      share_(ShareOf(batch)) {}

Progress::~Progress() {
    if (is_drawn_ && is_told_) fprintf(stderr, "\r\033[K");
}

/// Why the batch at work is not; "" when it is.
std::string Progress::KeptText(bool begun, int pid) const {
    const BatchState state = BatchStateOf(context_.places, pid);
    if (state.kind != BatchState::kKept) return "";
    return (begun ? "the batch is kept: " : "queued, behind a batch that is kept: ") + state.database +
           (state.database.empty() ? "" : ": ") + state.reason + "; the daemon tries again at " +
           TimeText(state.retry);
}

/// Why nothing of these requests happens yet.
std::string Progress::WaitingText(bool begun) const {
    if (begun && is_reported_ && share_.where() == WorkShare::kBefore) {
        const int64_t before = LineCount(batch_.file.get(), batch_.begin);
        return "queued, " + Ahead(before - report_.lines_done);
    }
    if (begun) return "being executed";
    if (access(context_.places.batch.c_str(), F_OK) != 0)
        return "queued, the daemon begins in about ten seconds";
    std::string text = "queued, behind a batch that is being executed";
    if (is_reported_ && report_.batch_begun != 0 && report_.lines > 0)
        text +=
            ": " + std::to_string(report_.lines_done) + " of " + Counted(report_.lines, "request") + " done";
    return text;
}

/// What has been done of them.
std::string Progress::DoneText() const {
    const int64_t files = std::min(share_.files(), found_);
    std::string text = is_drawn_ ? "" : "being executed: ";
    text += std::to_string(files) + " of " + Counted(found_, "file");
    if (share_.problems() > 0) text += ", " + Counted(share_.problems(), "problem");
    text += RateText(share_.rate());
    if (share_.rate() > 0 && files < found_)
        text += ", " + DurationText(static_cast<double>(found_ - files) / share_.rate()) + " left";
    return text;
}

std::string Progress::Line(bool begun, int pid) const {
    if (std::string kept = KeptText(begun, pid); !kept.empty()) return kept;
    if (is_reported_ && share_.where() == WorkShare::kBehind)
        return "done, but for the rest of its batch, which is being executed";
    if (!is_reported_ || share_.where() != WorkShare::kInside || found_ == 0) return WaitingText(begun);
    const std::string bar =
        is_drawn_ ? Bar(share_.files(), found_, BarColumns(TerminalSizeOf(STDERR_FILENO).columns)) : "";
    return bar + (bar.empty() ? "" : " ") + DoneText();
}

/// The last column stays free: some terminals begin a new line when it is filled.
void Progress::Draw(const std::string& line) const {
    const size_t columns = TerminalSizeOf(STDERR_FILENO).columns - 1;
    std::string text = CutEnd(Printable(line), columns);
    const std::string path = is_reported_ ? Printable(report_.path) : "";
    const size_t taken = ColumnsOf(text) + 2;
    if (!path.empty() && taken + kShortestName <= columns) text += "  " + CutMiddle(path, columns - taken);
    fprintf(stderr, "\r%s\033[K", text.c_str());
}

void Progress::Tell(bool begun) {
    const double now = MonotonicSeconds();
    const int pid = DaemonPid(context_.places.pid_file);
    is_reported_ = WorkReportOf(context_.places, pid, &report_);
    if (is_reported_) share_.Look(report_, now);
    if (now < next_) return;
    next_ = now + (is_drawn_ ? kSecondsPerDrawing : kSecondsPerLine);
    std::string line = Line(begun, pid);
    if (is_drawn_)
        Draw(line);
    else if (line != line_)
        fprintf(stderr, "koliindexctl: %s\n", Printable(line).c_str());
    line_ = std::move(line);
    is_told_ = true;
}

}  // namespace koli::ctl
