#include "video/metamedia.h"

#include <poll.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>

#include "base/log.h"
#include "base/media_fields.h"
#include "base/parse_number.h"
#include "base/regular_file.h"
#include "video/child_heap.h"
#include "video/child_signals.h"
#include "video/container_probe.h"
#include "video/guarded_child.h"
#include "video/probe_guard.h"

namespace koli {
namespace {

constexpr const char kModule[] = "metamedia";
constexpr char kUnguarded[] = "the probe cannot be guarded";
constexpr size_t kLineSize = 512;  // bytes of a line or a name below /proc, terminator included

/// What the child does: its exit status.
int ProbeInChild(const char* path, MediaInfo* record, FileReading& reading, ProbeFunction probe,
                 pid_t parent) {
    ChildHeapUseLargePages();
    const int file = RegularFile(path).Release();  // while there still are the daemon's rights
    if (file < 0) reading.ReadFailedUnlogged(errno);
    if (!ProbeGuardEnter(file, parent)) return reading.CannotParse(kUnguarded), 1;
    if (probe(file, path, record, reading) == 0) return 0;
    KOLI_LOG("Failed to get Misc Media Info from [%s].", path);
    return 1;
}

/// Takes over what a probe may write.  A child that was taken over may have left anything in the area: the
/// rest of the record (path, size, times, cover, ...) stays the caller's, and the texts end where they must.
struct ProbedFields {
    template <size_t N>
    void operator()(const MediaField<char[N]>& field) const {
        if ((field.rules & kFieldIsProbed) == 0) return;
        memcpy(record.*field.member, shared.*field.member, N);
        (record.*field.member)[N - 1] = '\0';
    }
    template <typename Number>
    void operator()(const MediaField<Number>& field) const {
        if ((field.rules & kFieldIsProbed) != 0) record.*field.member = shared.*field.member;
    }

    const MediaInfo& shared;
    MediaInfo& record;
};

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

/// What the status of an ended child means for the caller.
int ExitResult(pid_t pid, int status, FileReading& reading) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) {
        KOLI_LOG_COLON("Process %d killed by signal %d", pid, WTERMSIG(status));
        char reason[sizeof Failure::reason];
        snprintf(reason, sizeof reason, "reading it ended early: %s", strsignal(WTERMSIG(status)));
        reading.CannotParse(reason);
    }
    return -1;
}

}  // namespace

void ProbePollSleep(const timespec& interval, const sigset_t& mask) {
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
    const Shared<MediaInfo> shared;
    if (!shared.valid()) {
        reading.ReadFailedUnlogged(errno);
        KOLI_LOG_COLON("mmap() failed.");
        return -1;
    }
    memcpy(shared.get(), record, sizeof *record);
    if (!ProbeGuardPrepare()) return reading.Trouble(kUnguarded, errno), 1;
    const auto body = [&](pid_t parent) { return ProbeInChild(path, shared.get(), reading, probe, parent); };
    const int result = GuardedChildRun(std::cref(body), reading, settings);
    EachMediaField(ProbedFields{*shared.get(), *record});
    return result;
}

int MiscMediaInfoGet(const char* path, MediaInfo* record, FileReading& reading) {
    ContainerProbeWarmUp();
    return GuardedProbeRun(path, record, reading, MiscMediaInfoProbeFile);
}

int ProbeChildWatch(pid_t pid, FileReading& reading, const WatchSettings& settings) {
    if (pid <= 0) {
        KOLI_LOG_COLON("Bad parameters.");
        return -1;
    }
    const ChildEndScope child_end;
    int status = 0;
    for (uint32_t polls = 0;;) {
        settings.sleep(settings.interval, child_end.sleep_mask());
        if (waitpid(pid, &status, WNOHANG) > 0) return ExitResult(pid, status, reading);
        if (polls > settings.poll_limit) {
            settings.kill_child(pid);
            reading.CannotParse("reading it takes too long");
            KOLI_LOG_COLON("Process %d exceeded max loop count: %d, sec: %d, nsec: %d.", pid,
                           static_cast<int>(polls), static_cast<int>(settings.interval.tv_sec),
                           static_cast<int>(settings.interval.tv_nsec));
            return -1;
        }
        ++polls;
        if (ProbeChildMemoryExceeded(pid, settings.proc) != 0) {
            settings.kill_child(pid);
            reading.CannotParse("reading it takes too much memory");
            KOLI_LOG_COLON("Process %d exceeded max memory usage.", pid);
            return -1;
        }
    }
}

int ProbeChildMemoryExceeded(pid_t pid, const char* proc) {
    char file[kLineSize];
    int32_t total = 0;     // kB
    int32_t resident = 0;  // kB
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
    snprintf(file, sizeof file, "%s/%d/status", proc, pid);
    if (ProcNumberGet(file, "VmRSS:", &resident) != 1) return 0;
    return resident > static_cast<int32_t>(static_cast<double>(total) * 0.5) ? 1 : 0;
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
