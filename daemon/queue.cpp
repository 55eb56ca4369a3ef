#include "daemon/queue.h"

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/log.h"
#include "base/open_file.h"
#include "daemon/queue_line.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"
#include "platform/paths.h"

namespace koli {
namespace {

constexpr const char kModule[] = "koliindexd";
constexpr int kTakeOverAttempts = 16;
constexpr int kLockAttempts = 100;             // one second in all
constexpr timespec kLockPause{0, 10'000'000};  // 10 ms
constexpr QueueFiles kQueueFiles{paths::kQueue, paths::kBatch, "rm -rf /var/spool/koli_indexing_queue.tmp"};

/// Makes the queue the batch, unless one is pending: that one comes first, and the queue waits for a later
/// run.
void TakeOver(const QueueFiles& files) {
    struct stat status;
    if (stat(files.batch, &status) == 0) return;
    for (int attempt = 0; attempt < kTakeOverAttempts; ++attempt) {
        if (rename(files.queue, files.batch) == 0) return;
        KOLI_LOG("%s(%d): Failed to rename %s. (%s)", files.queue, strerror(errno));
    }
}

/// Opens a regular file, else null with errno set: a FIFO must not block the daemon.
FILE* OpenRegularFile(const char* path) {
    const int fd = OpenForReading(path);
    if (fd < 0) return nullptr;
    struct stat status;
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode))
        if (FILE* file = fdopen(fd, "r"); file != nullptr) return file;
    const int error = errno != 0 ? errno : EINVAL;
    close(fd);
    errno = error;
    return nullptr;
}

FILE* OpenBatch(const QueueFiles& files) {
    errno = 0;
    FILE* batch = OpenRegularFile(files.batch);
    if (batch != nullptr) return batch;
    // What cannot be opened now never will be, and would hold up the queue for good.
    const int error = errno;
    [[maybe_unused]] const int status = system(files.remove_command);
    KOLI_LOG("%s(%d): Failed to open %s. (%s)", files.batch, strerror(error));
    return nullptr;
}

/// A writer that opened the queue just before the take-over may append its line only now.  Writers that take
/// a lock for their append lose no line: with the lock held, nothing new can come between the last look and
/// the removal.  One that never gives its lock back is not waited for longer than a second; it may be waiting
/// for the databases, so their open rows are committed first.
void LockAgainstWriters(int fd) {
    for (int attempt = 0; attempt < kLockAttempts && flock(fd, LOCK_EX | LOCK_NB) != 0; ++attempt) {
        if (errno != EWOULDBLOCK && errno != EINTR) return;
        KOLIDBFlush();
        nanosleep(&kLockPause, nullptr);
    }
}

/// True when the whole batch has been read; it is then locked.  False when a late line has come meanwhile.
bool IsReadToItsEnd(FILE* batch) {
    LockAgainstWriters(fileno(batch));
    struct stat status;
    if (fstat(fileno(batch), &status) != 0 || status.st_size <= ftello(batch)) return true;
    flock(fileno(batch), LOCK_UN);
    clearerr(batch);
    return false;
}

/// The batch goes when its work is on the disk.  When the store cannot say so, the batch is kept: the next
/// run, which the next signal or the next start brings, executes it once more.
void RemoveBatch(const QueueFiles& files) {
    if (KOLIDBSync() != 0) {
        KOLI_LOG("%s (%d) Failed to sync the databases. Keep %s for the next run.", files.batch);
        return;
    }
    if (unlink(files.batch) != 0) KOLI_LOG("%s (%d) Failed to remove %s. (%s)", files.batch, strerror(errno));
}

void Notify(const char* pid_file, int signo) {
    const int pid = KLIBReadPidFile(pid_file);
    if (pid >= 1) kill(pid, signo);
}

void NotifyMediaServers() {
    if (BlKOLIIndexIsMusicTableDirty() != 0 || BlKOLIIndexIsVideoTableDirty() != 0)
        Notify(paths::kMusicServerPid, SIGHUP);
    Notify(paths::kMediaServerPid, SIGUSR1);
}

}  // namespace

void ProcessBatchLines(FILE* batch) {
    QueueLine line;
    do {
        while (QueueLineRead(batch, &line))
            QueueLineExecute(&line);
    } while (ferror(batch) == 0 && !IsReadToItsEnd(batch));
    if (ferror(batch) != 0) KOLI_LOG("%s (%d) Failed to read the batch to its end. (%s)", strerror(errno));
}

void ProcessQueueFiles(const QueueFiles& files) {
    KOLIIndexMusicTableDirtySet(0);
    KOLIIndexVideoTableDirtySet(0);
    TakeOver(files);
    FILE* batch = OpenBatch(files);
    if (batch == nullptr) return;
    ProcessBatchLines(batch);
    RemoveBatch(files);
    fclose(batch);  // and with it the lock
    NotifyMediaServers();
}

void ProcessIndexQueue() {
    ProcessQueueFiles(kQueueFiles);
}

}  // namespace koli
