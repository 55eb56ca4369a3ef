#include "guard/guard_steps.h"

#include <linux/capability.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/log.h"
#include "guard/landlock.h"
#include "guard/sanitized_build.h"

// The loader's: where the first stack begins, from which it goes down.
extern "C" void* __libc_stack_end;  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace koli {
namespace {

constexpr const char kModule[] = "metamedia";

constexpr rlim_t kMaxCpuSeconds = 120;  // a backstop behind the watch, which ends a child after 90 s
constexpr rlim_t kMaxOpenFiles = 16;    // a probe needs one more for a moment, a program a few
constexpr int kMaxInherited = 65536;    // descriptors closed one by one on kernels before 5.9

bool KernelFiltersSystemCalls(unsigned flags) {
    // A filter of no address: EFAULT comes only from a kernel that would have read it.
    return syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, flags, nullptr) != 0 && errno == EFAULT;
}

KernelGuards AskKernel() {
    // Without SPEC_ALLOW (Linux 4.17) some kernels run a filtered process with slow speculation defences.
    const bool may_speculate = KernelFiltersSystemCalls(SECCOMP_FILTER_FLAG_SPEC_ALLOW);
    const unsigned flags = may_speculate ? SECCOMP_FILTER_FLAG_SPEC_ALLOW : 0;
    return {KernelFiltersSystemCalls(flags), flags, LandlockAbi()};
}

}  // namespace

const KernelGuards& KernelGuardsGet() {
    static const KernelGuards guards = AskKernel();
    return guards;
}

rlim_t MachineMemory() {
    const auto pages = static_cast<rlim_t>(std::max(sysconf(_SC_PHYS_PAGES), 0L));
    return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

bool RefuseCodeOnStack() {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t behind = reinterpret_cast<uintptr_t>(__libc_stack_end) % page;
    return mprotect(static_cast<char*>(__libc_stack_end) - behind, page,
                    PROT_READ | PROT_WRITE | PROT_GROWSDOWN) == 0;
}

bool SignalAtParentsEnd(pid_t parent, int signal) {
    if (prctl(PR_SET_PDEATHSIG, signal) != 0) return false;
    if (getppid() == parent) return true;
    errno = ESRCH;  // it ended before the line above
    return false;
}

void CloseInherited(int file) {
    constexpr int kFirst = STDERR_FILENO + 1;
    const int kept = std::max(file, STDERR_FILENO);
    const bool closed = (kept <= kFirst || close_range(kFirst, static_cast<unsigned>(kept) - 1, 0) == 0) &&
                        close_range(static_cast<unsigned>(kept) + 1, ~0U, 0) == 0;
    if (closed) return;
    const int end = static_cast<int>(std::clamp(sysconf(_SC_OPEN_MAX), 0L, long{kMaxInherited}));
    for (int descriptor = kFirst; descriptor < end; ++descriptor)
        if (descriptor != file) close(descriptor);
}

bool LimitResource(__rlimit_resource resource, rlim_t value) {
    rlimit limit{};
    if (getrlimit(resource, &limit) != 0) return false;
    limit.rlim_max = std::min(limit.rlim_max, value);
    limit.rlim_cur = std::min(limit.rlim_cur, limit.rlim_max);
    return setrlimit(resource, &limit) == 0;
}

bool LimitWork(rlim_t address_space) {
    return LimitResource(RLIMIT_CORE, 0) && LimitResource(RLIMIT_FSIZE, 0) &&
           LimitResource(RLIMIT_NOFILE, kMaxOpenFiles) && LimitResource(RLIMIT_CPU, kMaxCpuSeconds) &&
           (kSanitizedBuild || LimitResource(RLIMIT_AS, address_space));
}

bool KeepCapabilities(uint32_t kept) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3] = {};
    if (kept != 0 && syscall(SYS_capget, &header, sets) != 0) return false;
    kept &= sets[0].permitted;
    sets[0] = {kept, kept, 0};
    sets[1] = {};
    return syscall(SYS_capset, &header, sets) == 0;
}

bool GuardFailed(const char* step) {
    KOLI_LOG("Cannot guard the probe: %s failed, errno=%d.", step, errno);
    return false;
}

}  // namespace koli
