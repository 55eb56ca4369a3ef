#include "video/metamedia.h"

#include <poll.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>

#include "base/log.h"
#include "base/parse_number.h"
#include "guard/child_signals.h"
#include "platform/kolidb.h"
#include "video/container_probe.h"
#include "video/guarded_child.h"
#include "video/guarded_probe.h"
#include "video/probe_ahead.h"
#include "video/probe_permission.h"

namespace koli {
namespace {

constexpr const char kModule[] = "metamedia";
constexpr size_t kLineSize = 512;  // bytes of a line or a name below /proc, terminator included

/// Finds the line of the file that holds `key` and a number behind it.  Returns 1 found, 0 no such line, -1
/// when the file cannot be opened.
int ProcNumberGet(const char* file, const char* key, int32_t* value) {
    FILE* lines = fopen(file, "re");
    if (lines == nullptr) return -1;
    const size_t key_length = strlen(key);
    int found = 0;
    for (char line[kLineSize]; found == 0 && fgets(line, sizeof line, lines) != nullptr;) {
        if (strncmp(line, key, key_length) != 0) continue;
        const char* end = nullptr;
        *value = ParseInt32(line + key_length, &end);
        found = end != line + key_length ? 1 : 0;
    }
    fclose(lines);
    return found;
}

}  // namespace

void ProbePollSleep(pid_t, const timespec& interval, const sigset_t& mask) {
    ppoll(nullptr, 0, &interval, &mask);
}

int GuardedProbeRun(const char* path, MediaInfo* record, FileReading& reading, ProbeFunction probe,
                    const WatchSettings& settings) {
    if (!ProbeGuardSuffices(settings.guards())) {
        if (errno != 0) reading.ReadFailedUnlogged(errno);
        KOLI_LOG("Not probed, as nothing guards the probe on this kernel. [%s]", path);
        reading.CannotParse("nothing guards the probe on this kernel");
        return 1;
    }
    GuardedChild child;
    if (!child.valid()) {
        reading.ReadFailedUnlogged(errno);
        KOLI_LOG_COLON("mmap() failed.");
        return -1;
    }
    child.record() = *record;
    if (!ProbeGuardPrepare()) return reading.Trouble(kProbeUnguarded, errno), 1;
    const auto body = [&](pid_t parent, FileReading& its_reading) {
        return ProbeInChild(path, &child.record(), its_reading, probe, parent);
    };
    const int result = GuardedChildRun(child, std::cref(body), reading, settings);
    ProbedFieldsTake(child.record(), record);
    return result;
}

int MiscMediaInfoGet(const char* path, MediaInfo* record, FileReading& reading) {
    ContainerProbeWarmUp();
    WatchSettings settings;
    if (ProbeAhead* ahead = ProbeAhead::Current(); ahead != nullptr) {
        int result = 0;
        if (ahead->Take(path, record, reading, &result)) return result;
        settings.sleep = ProbeAhead::Sleep;
    }
    return GuardedProbeRun(path, record, reading, MiscMediaInfoProbeFile, settings);
}

int ProbeChildWatch(pid_t pid, FileReading& reading, const WatchSettings& settings) {
    if (pid <= 0) {
        KOLI_LOG_COLON("Bad parameters.");
        return -1;
    }
    int status = 0;
    return ProbeChildWait(pid, &status, reading, settings) ? ProbeExitResult(pid, status, reading) : -1;
}

bool ProbeChildWait(pid_t pid, int* status, FileReading& reading, const WatchSettings& settings) {
    const ChildEndScope child_end;
    for (uint32_t polls = settings.polls;;) {
        settings.sleep(pid, settings.interval, child_end.sleep_mask());
        if (waitpid(pid, status, WNOHANG) > 0) return true;
        if (polls == settings.polls) KOLIDBFlush();  // what takes longer must not keep the databases locked
        if (polls > settings.poll_limit) {
            settings.kill_child(pid);
            reading.CannotParse("reading it takes too long");
            KOLI_LOG_COLON("Process %d exceeded max loop count: %d, sec: %d, nsec: %d.", pid,
                           static_cast<int>(polls), static_cast<int>(settings.interval.tv_sec),
                           static_cast<int>(settings.interval.tv_nsec));
            return false;
        }
        ++polls;
        if (ProbeChildMemoryExceeded(pid, settings.proc) != 0) {
            settings.kill_child(pid);
            reading.CannotParse("reading it takes too much memory");
            KOLI_LOG_COLON("Process %d exceeded max memory usage.", pid);
            return false;
        }
    }
}

int ProbeExitResult(pid_t pid, int status, FileReading& reading) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) {
        KOLI_LOG_COLON("Process %d killed by signal %d", pid, WTERMSIG(status));
        char reason[sizeof Failure::reason];
        snprintf(reason, sizeof reason, "reading it ended early: %s", strsignal(WTERMSIG(status)));
        reading.CannotParse(reason);
    }
    return -1;
}

int32_t ProbeChildResidentGet(pid_t pid, const char* proc) {
    char file[kLineSize];
    int32_t resident = 0;
    snprintf(file, sizeof file, "%s/%d/status", proc, pid);
    return ProcNumberGet(file, "VmRSS:", &resident) == 1 ? resident : 0;
}

int ProbeChildMemoryExceeded(pid_t pid, const char* proc) {
    char file[kLineSize];
    int32_t total = 0;  // kB
    snprintf(file, sizeof file, "%s/meminfo", proc);
    switch (ProcNumberGet(file, "MemTotal:", &total)) {
        case -1:
            KOLI_LOG_COLON("Cannot open /proc/meminfo");
            return 0;
        case 0:
            KOLI_LOG_COLON("Cannot get MemTotal value.");
            return 0;
        default:
            break;
    }
    return ProbeChildResidentGet(pid, proc) > static_cast<int32_t>(static_cast<double>(total) * 0.5) ? 1 : 0;
}

pid_t ProbeChildKill(pid_t pid) {
    kill(pid, SIGKILL);
    pid_t ended = 0;
    do {
        ended = waitpid(pid, nullptr, 0);
    } while (ended < 0 && errno == EINTR);
    return ended;
}

}  // namespace koli
