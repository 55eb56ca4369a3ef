#include "index/forerunner.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <system_error>
#include <thread>

#include "base/formats.h"
#include "base/log.h"
#include "base/media_info.h"
#include "base/metadata_folder.h"
#include "base/path_names.h"
#include "guard/child_signals.h"
#include "guard/guard_steps.h"
#include "index/forerunner_reads.h"
#include "index/record/run_ahead.h"
#include "index/record/share_path.h"
#include "platform/koliindex.h"

namespace koli {
namespace {

constexpr const char kModule[] = "directory";

constexpr size_t kAtOnce = 8;         // files that are waited for at the same time
constexpr int kFirstEntries = 4;      // of a folder that is to come
constexpr int kLevels = 2;            // below that folder
constexpr int kTriedEntries = 16;     // behind one that the walk has waited at
constexpr int kWantedEntries = 200;   // behind one that the process has waited for
constexpr rlim_t kMaxOpenFiles = 64;  // each thread has a file or the folders above it open

constexpr std::chrono::milliseconds kMaxEnd{200};  // a disk that does not answer may hold it longer

pid_t left_behind = 0;  // a process that has been killed and has not ended yet

constexpr int kOpenFlags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | O_NOFOLLOW;

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};
using Folder = std::unique_ptr<DIR, CloseFolder>;

Folder OpenFolder(const char* path) {
    const int descriptor = IsRecycleBinPath(path) != 0 ? -1 : open(path, kOpenFlags | O_DIRECTORY);
    Folder folder(descriptor >= 0 ? fdopendir(descriptor) : nullptr);
    if (folder == nullptr && descriptor >= 0) close(descriptor);
    return folder;
}

/// Covers and captions: the names that are looked for beside the file `path`.
void VisitMetadata(const char* path) {
    char metadata[kPathSize];
    const char* const name = FileNameOf(path);
    const int length = snprintf(metadata, sizeof metadata, "%.*s%s/%s", static_cast<int>(name - path), path,
                                kMetadataFolder, name);
    struct stat status;
    if (length >= static_cast<int>(sizeof metadata) || lstat(metadata, &status) != 0) return;
    const Folder folder = OpenFolder(metadata);
    int entries = 0;
    while (const dirent* entry = folder != nullptr ? readdir(folder.get()) : nullptr)
        if (entry->d_name[0] != '.' && ++entries <= kFirstEntries)
            fstatat(dirfd(folder.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW);
}

/// Neither a FIFO nor a lease holds it up; nothing that is no regular file is read.
void VisitFile(const char* path) {
    const Format* format = FormatFind(KOLIIndexExtGet(path));
    if (format == nullptr) return;
    struct stat status;
    if (lstat(path, &status) != 0 || !S_ISREG(status.st_mode) || !ForerunnerHasWork(format->reader)) return;
    VisitMetadata(path);
    const int file = open(path, kOpenFlags);
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
    const Folder folder = OpenFolder(path);
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

/// How often a process or a thread has waited.
long Waits(int whose) {
    rusage usage{};
    return getrusage(whose, &usage) == 0 ? usage.ru_nvcsw : 0;
}

/// Until the daemon closes its end.
void VisitAll(int paths) {
    char path[kPathSize];
    for (;;) {
        const ssize_t length = recv(paths, path, sizeof path - 1, 0);
        if (length < 0 && errno == EINTR) continue;
        if (length <= 0) return;
        path[length] = '\0';
        const long before = Waits(RUSAGE_THREAD);
        Visit(path);
        if (Waits(RUSAGE_THREAD) != before) send(paths, "w", 1, MSG_DONTWAIT | MSG_NOSIGNAL);
    }
}

/// The process: it may read everybody's files, and nothing else.  All signals stay blocked: who means the
/// daemon means it alone, and with the daemon this ends, too.
[[noreturn]] void Run(int paths, pid_t daemon) {
    if (!SignalAtParentsEnd(daemon, SIGKILL) || !KeepCapabilities(1U << CAP_DAC_READ_SEARCH)) _exit(1);
    CloseInherited(paths);
    if (!LimitResource(RLIMIT_NOFILE, kMaxOpenFiles) || !LimitResource(RLIMIT_FSIZE, 0) ||
        !LimitResource(RLIMIT_CORE, 0))
        _exit(1);
    std::array<std::thread, kAtOnce - 1> others;
    try {
        for (std::thread& other : others)
            other = std::thread(VisitAll, paths);
    } catch (const std::system_error&) {  // those that there are do the work
    }
    VisitAll(paths);
    _exit(0);
}

/// Waits for the end of a child that was killed; at most so long, because a disk that has stopped answering
/// holds it in the middle of a read.  A signal cuts a pause short: going on with it would never end where
/// signals come faster than the kernel's clock is fine.
bool HasEnded(pid_t child, std::chrono::milliseconds most) {
    constexpr timespec kPause{0, 1'000'000};
    const auto end = std::chrono::steady_clock::now() + most;
    while (waitpid(child, nullptr, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() >= end) return false;
        nanosleep(&kPause, nullptr);
    }
    return true;
}

/// Off, or one more would hang on the same disk.
bool IsKeptBack() {
    if (left_behind > 0 && HasEnded(left_behind, {})) left_behind = 0;
    return left_behind > 0 || !RunAheadIsAllowed();
}

}  // namespace

Forerunner::Forerunner() : waits_(Waits(RUSAGE_SELF)) {}

bool Forerunner::Start() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return false;
    const pid_t daemon = getpid();
    int error;
    {
        const AllSignalsBlocked and_in_the_child_for_good;
        pid_ = fork();
        if (pid_ == 0) Run(ends[1], daemon);
        error = errno;
    }
    close(ends[1]);
    paths_ = ends[0];
    errno = error;
    return pid_ > 0;
}

Forerunner::~Forerunner() {
    if (paths_ >= 0) close(paths_);
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    if (!HasEnded(pid_, kMaxEnd)) left_behind = pid_;
}

bool Forerunner::IsWanted() {
    const long waits = Waits(RUSAGE_SELF);
    if (waits != waits_) entries_ = std::max(entries_, kTriedEntries);
    waits_ = waits;
    char told;
    while (paths_ >= 0 && recv(paths_, &told, sizeof told, MSG_DONTWAIT) > 0)
        entries_ = kWantedEntries;
    if (entries_ > 0) --entries_;
    return entries_ > 0;
}

void Forerunner::Announce(const char* path) {
    if (pid_ == 0 && IsKeptBack()) pid_ = -1;
    if (pid_ == 0 && !Start()) {
        pid_ = -1;
        KOLI_LOG("Nothing runs ahead of the walk: %s", strerror(errno));
    }
    if (pid_ > 0) send(paths_, path, strlen(path), MSG_DONTWAIT | MSG_NOSIGNAL);
}

}  // namespace koli
