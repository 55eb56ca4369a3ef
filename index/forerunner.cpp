#include "index/forerunner.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <system_error>
#include <thread>

#include "base/formats.h"
#include "base/log.h"
#include "base/media_info.h"
#include "index/forerunner_reads.h"
#include "platform/koliindex.h"
#include "video/guard_steps.h"

namespace koli {
namespace {

constexpr const char kModule[] = "directory";

constexpr size_t kAtOnce = 4;     // files that are waited for at the same time
constexpr int kFirstEntries = 4;  // of a folder that is to come
constexpr int kLevels = 2;        // below that folder
constexpr int kWantedEntries =
    1000;  // behind the last one that was waited for; on a hot disk they cost some us each

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

void VisitFile(const char* path) {
    const Format* format = FormatFind(KOLIIndexExtGet(path));
    if (format == nullptr) return;
    const int file = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (file < 0) return;
    posix_fadvise(file, 0, 0, POSIX_FADV_RANDOM);
    ForerunnerRead(file, format->reader);
    close(file);
}

void VisitFolder(char (&path)[kPathSize], int levels);

void VisitEntry(char (&path)[kPathSize], unsigned char type, int levels) {
    if (type == DT_REG) VisitFile(path);
    if (type == DT_DIR && levels > 0) VisitFolder(path, levels - 1);
}

/// A folder, and what the walk meets first in it.
void VisitFolder(char (&path)[kPathSize], int levels) {
    const std::unique_ptr<DIR, CloseFolder> folder(opendir(path));
    const size_t length = strlen(path);
    int entries = 0;
    while (const dirent* entry = folder != nullptr ? readdir(folder.get()) : nullptr) {
        if (entry->d_name[0] == '.' || ++entries > kFirstEntries) continue;
        if (snprintf(path + length, sizeof path - length, "/%s", entry->d_name) <
            static_cast<int>(sizeof path - length))
            VisitEntry(path, entry->d_type, levels);
        path[length] = '\0';
    }
}

void Visit(char (&path)[kPathSize]) {
    const size_t last = strlen(path) - 1;
    if (path[last] != '/') return VisitFile(path);
    path[last] = '\0';
    VisitFolder(path, kLevels);
}

/// Until the daemon closes its end.
void VisitAll(int paths) {
    char path[kPathSize];
    for (;;) {
        const ssize_t length = recv(paths, path, sizeof path - 1, 0);
        if (length < 0 && errno == EINTR) continue;
        if (length <= 0) return;
        path[length] = '\0';
        Visit(path);
    }
}

/// The process: it may read everybody's files, and nothing else.
[[noreturn]] void Run(int paths, pid_t daemon) {
    if (!SignalAtParentsEnd(daemon, SIGKILL) || !KeepCapabilities(1U << CAP_DAC_READ_SEARCH)) _exit(1);
    CloseInherited(paths);
    std::array<std::thread, kAtOnce - 1> others;
    try {
        for (std::thread& other : others)
            other = std::thread(VisitAll, paths);
    } catch (const std::system_error&) {  // those that there are do the work
    }
    VisitAll(paths);
    _exit(0);
}

}  // namespace

bool Forerunner::Start() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return false;
    const pid_t daemon = getpid();
    sigset_t all, before;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &before);  // the daemon's signals are not meant for it
    pid_ = fork();
    if (pid_ == 0) Run(ends[1], daemon);
    const int error = errno;
    sigprocmask(SIG_SETMASK, &before, nullptr);
    close(ends[1]);
    paths_ = ends[0];
    errno = error;
    return pid_ > 0;
}

Forerunner::~Forerunner() {
    if (paths_ >= 0) close(paths_);
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

bool Forerunner::IsWanted() {
    rusage usage;
    if (getrusage(RUSAGE_SELF, &usage) != 0) return false;
    const bool has_waited = usage.ru_nvcsw != waits_ && waits_ != 0;
    waits_ = usage.ru_nvcsw;
    if (has_waited) entries_ = kWantedEntries;
    if (entries_ > 0) --entries_;
    return entries_ > 0;
}

void Forerunner::Announce(const char* path) {
    if (pid_ == 0 && !Start()) {
        pid_ = -1;
        KOLI_LOG("Nothing runs ahead of the walk: %s", strerror(errno));
    }
    if (pid_ > 0) send(paths_, path, strlen(path), MSG_DONTWAIT | MSG_NOSIGNAL);
}

}  // namespace koli
