#include "video/program_guard.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

#include "guard/guard_steps.h"
#include "guard/landlock.h"
#include "guard/probe_filter.h"
#include "video/metamedia.h"

namespace koli {
namespace {

ProbeFilter filter;  // length 0 = not built yet

/// This process's own, with the program.
void KillGroup(int) {
    kill(0, SIGKILL);
}

bool RefuseWriting() {
    const int abi = KernelGuardsGet().landlock_abi;
    return abi <= 0 || LandlockRefuseWriting(abi);
}

bool FilterSystemCalls() {
    const KernelGuards& kernel = KernelGuardsGet();
    return !kernel.has_filters || ProbeFilterEnter(&filter, kernel.filter_flags);
}

}  // namespace

bool ProgramGuardPrepare() {
    if (!KernelGuardsGet().has_filters || filter.length != 0) return true;
    return ProgramFilterBuild(&filter) || GuardFailed("building the filter");
}

bool ProgramGuardEnter(pid_t parent) {
    if (setpgid(0, 0) != 0) return GuardFailed("process group");
    signal(SIGTERM, KillGroup);
    if (!SignalAtParentsEnd(parent, SIGTERM)) return GuardFailed("end with parent");
    CloseInherited(-1);
    if (!LimitWork(MachineMemory() / 2)) return GuardFailed("limits");
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return GuardFailed("no new privileges");
    if (!KeepCapabilities(1U << CAP_DAC_READ_SEARCH)) return GuardFailed("capabilities");
    if (!RefuseWriting()) return GuardFailed("Landlock");
    if (!FilterSystemCalls()) return GuardFailed("seccomp");
    return true;
}

pid_t ProgramChildKill(pid_t pid) {
    kill(-pid, SIGKILL);
    return ProbeChildKill(pid);
}

}  // namespace koli
