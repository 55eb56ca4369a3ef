// Keeps one damaged file from flooding the system log.
#pragma once

#include <cstdint>

namespace koli {

/// Counts one message for one file.  The first kLimit are written as they occur; of the rest one line,
/// written when the file is done, tells the number.
struct RepeatedMessage {
    static constexpr int64_t kLimit = 16;

    /// Counts an occurrence; true when it is to be written.
    bool Admit() { return ++count <= kLimit; }
    /// How many were counted and not written.
    int64_t Suppressed() const { return count > kLimit ? count - kLimit : 0; }

    int64_t count = 0;
};

}  // namespace koli
