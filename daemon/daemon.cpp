#include "daemon/daemon.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/log.h"
#include "base/passing_error.h"
#include "base/reading_mark.h"
#include "base/work_report.h"
#include "daemon/background.h"
#include "daemon/kept_batch.h"
#include "daemon/loop.h"
#include "daemon/pid_file.h"
#include "daemon/queue.h"
#include "daemon/settings.h"
#include "platform/paths.h"
#include "video/probe_permission.h"

namespace koli {
namespace {

constexpr const char kModule[] = "koliindexd";
constexpr int kNiceLevel = 10;

sigset_t DaemonSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    sigaddset(&set, SIGTERM);
    return set;
}

/// Without a pid file there is no daemon.
[[noreturn]] void GiveUp(int error) {
    LogError(LogSite(kModule, LogForm::kTightColon), "Failed to create %s. (%s)", paths::kPidFile,
             strerror(error));
    exit(0);
}

}  // namespace

int DaemonStart() {
    const sigset_t held_back = DaemonSignals();
    sigprocmask(SIG_BLOCK, &held_back, nullptr);
    // Nobody sends these but by mistake, and each would end the daemon.
    for (const int stray : {SIGHUP, SIGPIPE, SIGALRM, SIGUSR2})
        signal(stray, SIG_IGN);

    // The lock is taken while there still is a terminal to answer to; daemon() hands it to the child.
    const bool is_alive = IsDaemonAlive(paths::kPidFile) != 0;
    const int lock = is_alive ? kPidFileHeld : PidFileLock(paths::kPidFile);
    const int lock_error = errno;
    if (lock == kPidFileHeld) {
        printf("Daemon alive. No need to start\n");
        return -1;
    }
    if (lock == kPidFileUnusable)
        fprintf(stderr, "%s: cannot create %s: %s. No daemon is started.\n", kModule, paths::kPidFile,
                strerror(lock_error));
    int starter = -1;
    if (!BackgroundEnter(&starter)) {
        KOLI_LOG("Failed to become a daemon.(%s)", strerror(errno));
        return -1;
    }
    if (lock == kPidFileUnusable) GiveUp(lock_error);
    // The descriptor stays open as long as the process lives, and the lock with it.
    if (!PidFileWrite(lock))
        LogError(LogSite(kModule, LogForm::kTightColon), "fprintf pid failed. (%s)", strerror(errno));
    if (!PidFilePublish(paths::kPidFile)) GiveUp(errno);
    StarterRelease(starter);
    return 0;
}

void Die(int) {
    ReadingMarkClear();
    unlink(paths::kState);
    unlink(paths::kProgress);
    unlink(paths::kPidFile);
    _exit(0);
}

bool SignalsInstall() {
    // Children are waited for; a starter that ignores their end must not hand that on.
    signal(SIGCHLD, SIG_DFL);
    if (signal(SIGUSR1, SetDirty) == SIG_ERR) {
        KOLI_LOG("signal(SIGUSR1, SetDirty) failed.");
        return false;
    }
    if (signal(SIGTERM, Die) == SIG_ERR) {
        KOLI_LOG("signal(SIGTERM, Die) failed.");
        return false;
    }
    const sigset_t held_back = DaemonSignals();
    sigprocmask(SIG_UNBLOCK, &held_back, nullptr);
    return true;
}

void ReadingTakeOver() {
    if (!ReadingMarkOpen(paths::kReading))
        KOLI_LOG("Failed to open %s. (%s)", paths::kReading, strerror(errno));
    char path[kPathSize];
    const int count = ReadingMarkTakeOver(MayExist(paths::kBatch), path);
    if (count > 0) KOLI_LOG("The daemon has ended in the middle of [%s], time %d.", path, count);
}

void LeftoversRun() {
    BatchForget(paths::kState);  // of an earlier daemon
    if (MayExist(paths::kBatch)) ProcessIndexQueue();
    if (MayExist(paths::kQueue)) ProcessIndexQueue();
}

void DaemonRun() {
    if (DaemonStart() != 0) exit(1);
    setpriority(PRIO_PROCESS, 0, kNiceLevel);
    if (!SignalsInstall()) exit(1);
    ProbeGuardReport();
    last_vacuum = time(nullptr);
    VacuumDatabases();
    FeaturesRead();
    CharsetRead();
    ReadingTakeOver();
    if (!WorkReportOpen(paths::kProgress))
        KOLI_LOG("Failed to open %s. (%s)", paths::kProgress, strerror(errno));
    LeftoversRun();
    MainLoop();
}

}  // namespace koli
