#include "daemon/kept_batch.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <string>

#include "base/log.h"
#include "platform/paths.h"

namespace koli {
namespace {

constexpr const char kModule[] = "koliindexd";
constexpr int kFirstPause = 10;  // seconds
constexpr int kLongestPause = 300;

struct Kept {
    int pause;       // seconds until the next attempt, 0 = no batch is kept
    timespec since;  // of a clock that nobody sets
    timespec retry;
};
Kept kept{};

timespec Now() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return now;
}

/// Whoever reads the file finds all of it, or the one before.
void WriteState(const char* state_file, const char* database, const char* reason) {
    const std::string temporary = std::string(state_file) + ".new";
    const time_t now = time(nullptr);
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd < 0) return;
    const int written =
        dprintf(fd, "batch=kept\ndatabase=%s\nreason=%s\nsince=%lld\nretry=%lld\n", database, reason,
                static_cast<long long>(now) - BatchKeptSeconds(), static_cast<long long>(now) + kept.pause);
    fchmod(fd, 0644);
    close(fd);
    if (written < 0 || rename(temporary.c_str(), state_file) != 0) unlink(temporary.c_str());
}

}  // namespace

void BatchKeep(const char* state_file, const char* database, const char* reason) {
    const timespec now = Now();
    if (kept.pause == 0) kept.since = now;
    kept.pause = kept.pause == 0 ? kFirstPause : std::min(2 * kept.pause, kLongestPause);
    kept.retry = now;
    kept.retry.tv_sec += kept.pause;
    KOLI_LOG("Keep %s, to be tried again in %d s. (%s%s%s)", paths::kBatch, kept.pause, database,
             *database != '\0' ? ": " : "", reason);
    WriteState(state_file, database, reason);
}

void BatchForget(const char* state_file) {
    kept = {};
    unlink(state_file);
}

bool IsBatchKept() {
    return kept.pause != 0;
}

int BatchKeptSeconds() {
    return IsBatchKept() ? static_cast<int>(Now().tv_sec - kept.since.tv_sec) : 0;
}

int BatchRetrySeconds() {
    return IsBatchKept() ? static_cast<int>(std::max<time_t>(kept.retry.tv_sec - Now().tv_sec, 0)) : 0;
}

}  // namespace koli
