// Shows on the error stream how far a copy has come.
#pragma once

#include <string>

#include "platform/host/library_copy.h"

namespace koli::ctl {

/// A moving bar on a terminal, else a line every few seconds when there is something new.
class CopyProgress {
  public:
    CopyProgress();
    ~CopyProgress();  ///< leaves the terminal with an empty line
    CopyProgress(const CopyProgress&) = delete;
    CopyProgress& operator=(const CopyProgress&) = delete;

    /// Shows the table at work, unless something has just been shown.
    void Tell(const host::CopiedTable& table);

  private:
    const bool is_drawn_;
    double next_;       // seconds of the monotonic clock, of the next line
    double begun_ = 0;  // of the table at work
    std::string name_;  // of that
    bool is_told_ = false;
};

}  // namespace koli::ctl
