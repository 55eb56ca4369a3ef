// Shows on the error stream how far the daemon has come with queued requests.
#pragma once

#include <cstdint>
#include <string>

#include "base/work_report.h"
#include "tools/ctl/context.h"
#include "tools/ctl/request_writer.h"

namespace koli::ctl {

inline constexpr double kSecondsPerLine = 5;  // where there is no terminal
inline constexpr double kSecondsPerDrawing = 0.5;

double MonotonicSeconds();

/// How wide a bar is on a terminal of so many columns; 0 = there is no room for one.
size_t BarColumns(size_t columns);

/// What has been done of the requests between two places of a batch, from one look at the daemon's report to
/// the next.
class WorkShare {
  public:
    enum Where { kElsewhere, kBefore, kInside, kBehind };  // where the daemon is at work

    WorkShare(uint64_t device, uint64_t inode, int64_t begin, int64_t end)
        : device_(device), inode_(inode), begin_(begin), end_(end) {}

    /// `now` is in seconds of a clock that does not jump.
    void Look(const WorkReport& report, double now);

    Where where() const { return where_; }
    int64_t files() const { return files_; }
    int64_t problems() const { return problems_; }
    /// Files in a second; 0 when nothing can be said yet.
    double rate() const { return rate_; }

  private:
    const uint64_t device_, inode_;
    const int64_t begin_, end_;
    Where where_ = kElsewhere;
    bool is_known_ = false;  // what had been done before the first of these requests
    int64_t files_before_ = 0, problems_before_ = 0;
    int64_t files_ = 0, problems_ = 0;
    double began_ = 0;  // 0 = not yet
    int64_t files_then_ = 0;
    double rate_ = 0;
};

/// "12 s", "3 min", "2 h 5 min".
std::string DurationText(double seconds);

/// ", 120/s" or ", 5/min"; "" when it is too little to tell.
std::string RateText(double files_per_second);

/// A moving bar on a terminal, else a line every few seconds when there is something new.
class Progress {
  public:
    /// `found` is the number of files that are to be present.  `context` and `batch` must outlive this.
    Progress(const Context& context, const QueuedBatch& batch, int64_t found);
    ~Progress();  ///< leaves the terminal with an empty line
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Looks at the daemon's work and shows it, unless it has just been shown.  `begun`: the daemon has taken
    /// the queue over.
    void Tell(bool begun);

  private:
    std::string KeptText(bool begun, int pid) const;
    std::string WaitingText(bool begun) const;
    std::string DoneText() const;
    std::string Line(bool begun, int pid) const;
    void Draw(const std::string& line) const;

    const Context& context_;
    const QueuedBatch& batch_;
    const int64_t found_;
    const bool is_drawn_;
    WorkShare share_;
    WorkReport report_{};
    bool is_reported_ = false;
    double next_ = 0;  // seconds of the monotonic clock, of the next line
    bool is_told_ = false;
    std::string line_;  // the last one
};

}  // namespace koli::ctl
