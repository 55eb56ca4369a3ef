// Log lines of a probe's child.  The child has no connection to the system log, nor any other descriptor: it
// leaves its lines in memory that it shares with the daemon, which logs them at the file's turn.
#pragma once

#include <cstddef>

namespace koli {

/// Lies, zeroed, in memory that one child and the daemon share.  Untouched pages cost nothing.
class ProbeMessages {
  public:
    static constexpr size_t kSize = 16384;  // bytes for all lines of one child; what does not fit is dropped
    static constexpr int kMaxLines = 16;  // logged at most: the child may have filled the area with anything

    /// In the child: from here on the lines of LogError go here.
    void Collect();
    /// In the parent, after the child's end: logs the lines.
    void Relay() const;

  private:
    char lines_[kSize];  // with their terminating zero, one behind the other; zeroes behind the last
};

}  // namespace koli
