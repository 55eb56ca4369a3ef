#include "video/probe_guard.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>

#include "base/log.h"
#include "platform/kolisdk.h"
#include "platform/paths.h"
#include "video/landlock.h"
#include "video/probe_filter.h"
#include "video/sanitized_build.h"

namespace koli {
namespace {

constexpr const char kModule[] = "metamedia";

constexpr rlim_t kMaxCpuSeconds = 120;     // a backstop behind the watch, which ends a child after 90 s
constexpr rlim_t kMaxOpenFiles = 16;       // the rules for files need one more than the probe
constexpr rlim_t kLibraryBytes = 1 << 30;  // address space of the libraries and of the daemon itself
constexpr int kMaxInherited = 65536;       // descriptors closed one by one on kernels before 5.9

/// What all children share.
struct GuardState {
    bool asked;            // the kernel, for all but `filter`
    rlim_t address_space;  // bytes
    int landlock_abi;      // 0 = not there
    bool has_filters;      // the kernel
    unsigned filter_flags;
    ProbeFilter filter;  // length 0 = not built yet
};
GuardState guard;

bool KernelFiltersSystemCalls(unsigned flags) {
    // A filter of no address: EFAULT comes only from a kernel that would have read it.
    return syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, flags, nullptr) != 0 && errno == EFAULT;
}

/// More than the whole machine's memory is never needed: one poll of the watch is long enough to fill it.
rlim_t MachineMemory() {
    const auto pages = static_cast<rlim_t>(std::max(sysconf(_SC_PHYS_PAGES), 0L));
    return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

void AskKernel() {
    guard.asked = true;
    guard.address_space = MachineMemory() + kLibraryBytes;
    guard.landlock_abi = LandlockAbi();
    // Without SPEC_ALLOW (Linux 4.17) some kernels run a filtered process with slow speculation defences.
    if (KernelFiltersSystemCalls(SECCOMP_FILTER_FLAG_SPEC_ALLOW))
        guard.filter_flags = SECCOMP_FILTER_FLAG_SPEC_ALLOW;
    guard.has_filters = KernelFiltersSystemCalls(guard.filter_flags);
}

// ---- The steps.  Each returns 0, or a negative value with errno set.

int EndWithParent(pid_t parent) {
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0) return -1;
    if (getppid() == parent) return 0;
    errno = ESRCH;  // it ended before the line above
    return -1;
}

/// Closes everything but the standard three and `file`.
int CloseInherited(int file) {
    constexpr int kFirst = STDERR_FILENO + 1;
    const int kept = std::max(file, STDERR_FILENO);
    const bool closed = (kept <= kFirst || close_range(kFirst, static_cast<unsigned>(kept) - 1, 0) == 0) &&
                        close_range(static_cast<unsigned>(kept) + 1, ~0U, 0) == 0;
    if (closed) return 0;
    const int end = static_cast<int>(std::clamp(sysconf(_SC_OPEN_MAX), 0L, long{kMaxInherited}));
    for (int descriptor = kFirst; descriptor < end; ++descriptor)
        if (descriptor != file) close(descriptor);
    return 0;
}

int Limit(__rlimit_resource resource, rlim_t value) {
    rlimit limit{};
    if (getrlimit(resource, &limit) != 0) return -1;
    limit.rlim_max = std::min(limit.rlim_max, value);
    limit.rlim_cur = std::min(limit.rlim_cur, limit.rlim_max);
    return setrlimit(resource, &limit);
}

int LimitResources() {
    if (Limit(RLIMIT_CORE, 0) != 0 || Limit(RLIMIT_FSIZE, 0) != 0 || Limit(RLIMIT_NPROC, 0) != 0) return -1;
    if (Limit(RLIMIT_NOFILE, kMaxOpenFiles) != 0 || Limit(RLIMIT_CPU, kMaxCpuSeconds) != 0) return -1;
    return kSanitizedBuild ? 0 : Limit(RLIMIT_AS, guard.address_space);
}

int RefusePrivileges() {
    // Not dumpable: neither a core helper nor another process of the same user gets at the memory.
    return prctl(PR_SET_DUMPABLE, 0) == 0 ? prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) : -1;
}

int DropCapabilities() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    constexpr __user_cap_data_struct kNone[_LINUX_CAPABILITY_U32S_3] = {};
    return static_cast<int>(syscall(SYS_capset, &header, kNone));
}

int RefuseFiles() {
    return guard.landlock_abi > 0 ? LandlockAllowNothing(guard.landlock_abi) : 0;
}

int FilterSystemCalls() {
    return guard.has_filters ? ProbeFilterEnter(&guard.filter, guard.filter_flags) : 0;
}

int Failed(const char* step) {
    KOLI_LOG("%s (%d) Cannot guard the probe: %s failed, errno=%d.", step, errno);
    return -1;
}

}  // namespace

int ProbeGuardPrepare() {
    if (!guard.asked) AskKernel();
    if (!guard.has_filters || guard.filter.length != 0 || ProbeFilterBuild(&guard.filter) == 0) return 0;
    return Failed("building the filter");
}

ProbeGuardStatus ProbeGuardStatusGet() {
    if (!guard.asked) AskKernel();
    return {guard.has_filters, guard.landlock_abi > 0};
}

bool ProbeGuardSuffices(const ProbeGuardStatus& status) {
    if (status.system_call_filter || status.file_rules) return true;
    char value[8];
    return KLIBFileGetKeyValue(paths::kConfig, "unguardedprobe", value, sizeof value, 0) < 0 ||
           strcmp(value, "no") != 0;
}

void ProbeGuardReport() {
    ProbeGuardPrepare();
    const ProbeGuardStatus status = ProbeGuardStatusGet();
    if (status.system_call_filter && status.file_rules) return;
    LogNotice("%s (%d) Media is %sprobed without%s%s: this kernel lacks it.", kModule, __LINE__,
              ProbeGuardSuffices(status) ? "" : "not ", status.system_call_filter ? "" : " [seccomp]",
              status.file_rules ? "" : " [Landlock]");
}

int ProbeGuardEnter(int file, pid_t parent) {
    // The order matters: descriptors first, so that nothing of the daemon's is open below; the rules for
    // files need a descriptor of their own and system calls that the filter refuses; both need the refusal of
    // new privileges.
    if (EndWithParent(parent) != 0) return Failed("end with parent");
    if (CloseInherited(file) != 0) return Failed("closing");
    if (LimitResources() != 0) return Failed("limits");
    if (RefusePrivileges() != 0) return Failed("no new privileges");
    if (DropCapabilities() != 0) return Failed("capabilities");
    if (RefuseFiles() != 0) return Failed("Landlock");
    if (FilterSystemCalls() != 0) return Failed("seccomp");
    return 0;
}

}  // namespace koli
