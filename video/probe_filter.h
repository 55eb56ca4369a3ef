// The system calls that the child of a guarded probe may make.
#pragma once

#include <linux/filter.h>

#include <array>
#include <cstdint>

namespace koli {

/// A seccomp filter, ready to be installed; `length` 0 is no filter.
struct ProbeFilter {
    static constexpr uint16_t kMaxInstructions = 512;
    std::array<sock_filter, kMaxInstructions> instructions;
    uint16_t length;
};

/// Builds the filter: reading of open files, memory and time are allowed, a socket or another program ends
/// the process, everything else fails with EPERM.  Costs about a millisecond: once per daemon, not per child.
/// Returns false, with `length` 0, when it could not be built.
bool ProbeFilterBuild(ProbeFilter* filter);

}  // namespace koli
