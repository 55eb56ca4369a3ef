#include "guard/probe_guard.h"

#include <sys/prctl.h>

#include <csignal>

#include "guard/guard_steps.h"
#include "guard/landlock.h"
#include "guard/probe_filter.h"

namespace koli {
namespace {

constexpr rlim_t kLibraryBytes = 1 << 30;  // address space of the libraries and of the daemon itself

/// What all children share.
struct GuardState {
    rlim_t address_space;  // bytes; 0 = not asked yet
    ProbeFilter filter;    // length 0 = not built yet
};
GuardState guard;

// ---- Steps of the probe's alone.

bool RefusePrivileges() {
    // Not dumpable: neither a core helper nor another process of the same user gets at the memory.
    return prctl(PR_SET_DUMPABLE, 0) == 0 && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
}

bool RefuseFiles() {
    const int abi = KernelGuardsGet().landlock_abi;
    return abi <= 0 || LandlockAllowNothing(abi);
}

bool FilterSystemCalls() {
    const KernelGuards& kernel = KernelGuardsGet();
    return !kernel.has_filters || ProbeFilterEnter(&guard.filter, kernel.filter_flags);
}

}  // namespace

bool ProbeGuardPrepare() {
    // More than the whole machine's memory is never needed: one poll of the watch is long enough to fill it.
    if (guard.address_space == 0) guard.address_space = MachineMemory() + kLibraryBytes;
    if (!RefuseCodeOnStack()) return GuardFailed("stack without code");
    if (!KernelGuardsGet().has_filters || guard.filter.length != 0) return true;
    return ProbeFilterBuild(&guard.filter) || GuardFailed("building the filter");
}

ProbeGuardStatus ProbeGuardStatusGet() {
    const KernelGuards& kernel = KernelGuardsGet();
    return {kernel.has_filters, kernel.landlock_abi > 0};
}

bool ProbeGuardEnter(int file, pid_t parent) {
    // The order matters: descriptors first, so that nothing of the daemon's is open below; the rules for
    // files need a descriptor of their own and system calls that the filter refuses; both need the refusal of
    // new privileges.
    if (!SignalAtParentsEnd(parent, SIGKILL)) return GuardFailed("end with parent");
    CloseInherited(file);
    if (!LimitWork(guard.address_space)) return GuardFailed("limits");
    if (!LimitResource(RLIMIT_NPROC, 0)) return GuardFailed("limits");
    if (!RefusePrivileges()) return GuardFailed("no new privileges");
    if (!KeepCapabilities(0)) return GuardFailed("capabilities");
    if (!RefuseFiles()) return GuardFailed("Landlock");
    if (!FilterSystemCalls()) return GuardFailed("seccomp");
    return true;
}

}  // namespace koli
