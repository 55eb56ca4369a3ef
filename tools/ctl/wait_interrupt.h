// Ctrl-C while queued requests are waited for.
#pragma once

#include <csignal>

namespace koli::ctl {

/// As long as it lives, SIGINT ends the program with one line that says that the requests stay queued; the
/// terminal is left with nothing half drawn.  Where SIGINT is ignored it stays so.
class WaitInterrupt {
  public:
    WaitInterrupt();
    ~WaitInterrupt();
    WaitInterrupt(const WaitInterrupt&) = delete;
    WaitInterrupt& operator=(const WaitInterrupt&) = delete;

  private:
    struct sigaction before_ {};
};

}  // namespace koli::ctl
