// Log lines of a probe's child.  The child has no connection to the system log, nor any other descriptor: it
// leaves its lines in memory that it shares with the daemon, which logs them once the child has ended.
#pragma once

#include <cstddef>

namespace koli {

/// A shared anonymous mapping that every child forked while it lives writes to.  Untouched pages cost
/// nothing.
class ProbeMessages {
  public:
    static constexpr size_t kSize = 16384;  // bytes for all lines of one child; what does not fit is dropped
    static constexpr int kMaxLines = 16;  // logged at most: the child may have filled the area with anything

    ProbeMessages();
    ~ProbeMessages();
    ProbeMessages(const ProbeMessages&) = delete;
    ProbeMessages& operator=(const ProbeMessages&) = delete;

    bool valid() const { return area_ != nullptr; }
    /// In the child: from here on the lines of LogError go to the area.
    void Collect() const;
    /// In the parent, after the child's end: logs the lines.
    void Relay() const;

  private:
    char* area_;  // lines with their terminating zero, one behind the other; zeroes behind the last
};

}  // namespace koli
