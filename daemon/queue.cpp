#include "daemon/queue.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "base/folder_sync.h"
#include "base/log.h"
#include "base/passing_error.h"
#include "base/reading_mark.h"
#include "base/regular_file.h"
#include "base/work_report.h"
#include "base/written_file_systems.h"
#include "daemon/batch.h"
#include "daemon/kept_batch.h"
#include "daemon/settings.h"
#include "photo/caption.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"
#include "platform/paths.h"

namespace koli {
namespace {

constexpr const char kModule[] = "koliindexd";
constexpr int kTakeOverAttempts = 16;
constexpr int kTornLinePatience = 300;  // seconds that a writer may take over its last line
constexpr int kShareAttempts = 3;       // of a batch whose share does not take what was written
constexpr QueueFiles kQueueFiles{paths::kQueue, paths::kBatch, paths::kState,
                                 "rm -rf /var/spool/koli_indexing_queue.tmp"};

int share_failures = 0;  // attempts of this batch after which a share could not be synced

/// Makes the queue the batch.  A mark that an earlier one left would count for this one.
void TakeOver(const QueueFiles& files) {
    share_failures = 0;
    PhotoDBMarkRemove();
    for (int attempt = 0; attempt < kTakeOverAttempts; ++attempt) {
        if (rename(files.queue, files.batch) == 0) return;
        LogError(LogSite(kModule, LogForm::kTightColon), "Failed to rename %s. (%s)", files.queue,
                 strerror(errno));
    }
}

FILE* OpenBatch(const QueueFiles& files) {
    FILE* batch = StreamOf(RegularFile(files.batch).Release());
    if (batch != nullptr) return batch;
    const int error = errno;
    if (IsPassingError(error)) {
        BatchKeep(files.state, "", strerror(error));
    } else {
        // What cannot be opened now never will be, and would hold up the queue for good.
        [[maybe_unused]] const int status = system(files.remove_command);
        BatchForget(files.state);
    }
    LogError(LogSite(kModule, LogForm::kTightColon), "Failed to open %s. (%s)", files.batch, strerror(error));
    return nullptr;
}

/// A batch that a power cut brings back must be the one that its mark was made for.
void MakeDurable(FILE* batch, const QueueFiles& files) {
    fsync(fileno(batch));
    FolderSyncOf(files.batch);
}

/// Its mark goes last: until the batch has gone for good, it may be executed again.
void RemoveBatch(const QueueFiles& files) {
    if (unlink(files.batch) != 0) {
        const int error = errno;
        KOLI_LOG("Failed to remove %s. (%s)", files.batch, strerror(error));
        BatchKeep(files.state, "", strerror(error));
        return;
    }
    BatchForget(files.state);
    ReadingMarkForgive();
    KOLIBatchMark mark;
    if (PhotoDBMarkGet(&mark) != 0) return;
    FolderSyncOf(files.batch);
    PhotoDBMarkRemove();
}

void KeepRefused(const QueueFiles& files) {
    std::string names, reasons;
    const auto add = [](const std::string& text, std::string* list) {
        if (*list != text) *list += (list->empty() ? "" : ", ") + text;
    };
    for (const int database : {KOLI_MEDIA_DB, KOLI_PHOTO_DB}) {
        if ((KOLIDBRefusing() & database) == 0) continue;
        add(KOLIDBNameGet(database), &names);
        add(KOLIDBRefusalGet(database), &reasons);
    }
    BatchKeep(files.state, names.c_str(), reasons.c_str());
}

/// Whether a share's fault keeps the batch: executed again it writes what was lost.  A share that stays as it
/// is must not hold up the others for good.
bool MustWaitForShare(const std::string& fault) {
    if (fault.empty()) return false;
    if (++share_failures < kShareAttempts) return true;
    KOLI_LOG("Failed to sync a share, which may have lost what was written. (%s)", fault.c_str());
    return false;
}

/// Has the batch's work on the disk.  True when the batch may go; else it is kept, to be executed again.
bool FinishBatch(const QueueFiles& files, BatchEnd end, int error) {
    CaptionRemovalsRun();
    const bool is_synced = KOLIDBSync() == 0;
    WrittenFileSystemsSync();
    const std::string share_fault = WrittenFileSystemsFault();
    if (end == BatchEnd::kUnread) {
        KOLI_LOG("Failed to read the batch to its end. (%s)", strerror(error));
        BatchKeep(files.state, "", strerror(error));
    } else if (end == BatchEnd::kHeld) {
        BatchKeep(files.state, "", "a writer holds the lock on its last line");
    } else if (KOLIDBRefusing() != 0) {
        KeepRefused(files);
    } else if (MustWaitForShare(share_fault)) {
        BatchKeep(files.state, "", share_fault.c_str());
    } else {
        if (!is_synced) KOLI_LOG("Failed to sync the databases.");  // for good: no repetition would help
        return true;
    }
    return false;
}

/// Executes the lines as far as the stores take them.  True when the batch may go.
bool Execute(FILE* batch, bool is_repeated, const QueueFiles& files) {
    struct stat status {};
    if (fstat(fileno(batch), &status) == 0) WorkBatchBegin(status.st_dev, status.st_ino);
    const BatchEnd end =
        ProcessBatchLines(batch, files.queue, is_repeated, BatchKeptSeconds() < kTornLinePatience);
    return FinishBatch(files, end, errno);
}

/// Holds SIGTERM back while it lives.
class StopHeldBack {
  public:
    StopHeldBack() {
        sigset_t stop;
        sigemptyset(&stop);
        sigaddset(&stop, SIGTERM);
        sigprocmask(SIG_BLOCK, &stop, &outer_mask_);
    }
    ~StopHeldBack() { sigprocmask(SIG_SETMASK, &outer_mask_, nullptr); }
    StopHeldBack(const StopHeldBack&) = delete;
    StopHeldBack& operator=(const StopHeldBack&) = delete;

  private:
    sigset_t outer_mask_;
};

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

void ProcessQueueFiles(const QueueFiles& files) {
    KOLIIndexMusicTableDirtySet(0);
    KOLIIndexVideoTableDirtySet(0);
    KOLIDBBatchBegin();
    const bool is_repeated = MayExist(files.batch);  // taking over would replace it
    if (!is_repeated) TakeOver(files);
    FILE* batch = OpenBatch(files);
    if (batch == nullptr) return;
    if (is_repeated) {
        // What it changed the first time may have been told to nobody.
        KOLIIndexMusicTableDirtySet(1);
        KOLIIndexVideoTableDirtySet(1);
    } else {
        MakeDurable(batch, files);
    }
    const std::string fault = SettingsFault();
    if (!fault.empty()) BatchKeep(files.state, "", fault.c_str());
    const bool is_done = fault.empty() && Execute(batch, is_repeated, files);
    const StopHeldBack until_told;  // of a batch that is gone nobody would tell the media servers any more
    if (is_done) RemoveBatch(files);
    WorkBatchEnd();
    fclose(batch);  // and with it the lock
    NotifyMediaServers();
}

void ProcessIndexQueue() {
    const bool was_kept = IsBatchKept();
    ProcessQueueFiles(kQueueFiles);
    if (was_kept && !IsBatchKept() && MayExist(kQueueFiles.queue)) ProcessQueueFiles(kQueueFiles);
}

}  // namespace koli
