// Shows on the error stream how far the daemon has come.
#pragma once

#include <cstdint>
#include <string>

#include "tools/ctl/context.h"
#include "tools/ctl/submission.h"

namespace koli::ctl {

/// A moving bar on a terminal, else a line every few seconds when there is something new.
class Progress {
  public:
    /// `found` is the number of files that are to be present.  The submission must outlive this.
    Progress(const Context& context, const Submission& submission, int64_t found);
    ~Progress();  ///< leaves the terminal with an empty line
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Says it, unless it has just been said.
    void Tell(bool begun);

  private:
    std::string WaitingLine(bool begun) const;
    std::string StoredLine();
    std::string RateLine(int64_t stored, int64_t unparsable);

    const Context& context_;
    const Submission& submission_;
    int64_t found_;
    int64_t stored_before_ = -1;  // when the daemon began; -1 = it has not
    double began_ = 0;            // seconds of the monotonic clock
    double next_ = 0;             // the same, of the next line
    bool is_told_ = false;
    std::string line_;  // the last one
    bool is_terminal_;
};

}  // namespace koli::ctl
