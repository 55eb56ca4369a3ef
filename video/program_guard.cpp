#include "video/program_guard.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

#include "video/guard_steps.h"
#include "video/landlock.h"
#include "video/metamedia.h"
#include "video/probe_filter.h"

namespace koli {
namespace {

ProbeFilter filter;  // length 0 = not built yet

/// This process's own, with the program.
void KillGroup(int) {
    kill(0, SIGKILL);
}

int RefuseWriting() {
    const int abi = KernelGuardsGet().landlock_abi;
    return abi > 0 ? LandlockRefuseWriting(abi) : 0;
}

int FilterSystemCalls() {
    const KernelGuards& kernel = KernelGuardsGet();
    return kernel.has_filters ? ProbeFilterEnter(&filter, kernel.filter_flags) : 0;
}

}  // namespace

int ProgramGuardPrepare() {
    if (!KernelGuardsGet().has_filters || filter.length != 0) return 0;
    return ProgramFilterBuild(&filter) == 0 ? 0 : GuardFailed("building the filter");
}

int ProgramGuardEnter(pid_t parent) {
    if (setpgid(0, 0) != 0) return GuardFailed("process group");
    signal(SIGTERM, KillGroup);
    if (SignalAtParentsEnd(parent, SIGTERM) != 0) return GuardFailed("end with parent");
    if (CloseInherited(-1) != 0) return GuardFailed("closing");
    if (LimitWork(MachineMemory() / 2) != 0) return GuardFailed("limits");
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return GuardFailed("no new privileges");
    if (KeepCapabilities(1U << CAP_DAC_READ_SEARCH) != 0) return GuardFailed("capabilities");
    if (RefuseWriting() != 0) return GuardFailed("Landlock");
    if (FilterSystemCalls() != 0) return GuardFailed("seccomp");
    return 0;
}

pid_t ProgramChildKill(pid_t pid) {
    kill(-pid, SIGKILL);
    return ProbeChildKill(pid);
}

}  // namespace koli
