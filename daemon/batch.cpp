#include "daemon/batch.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>

#include "base/later_renames.h"
#include "base/line_count.h"
#include "base/work_report.h"
#include "daemon/queue_line.h"
#include "daemon/waiting_renames.h"
#include "photo/caption.h"
#include "platform/kolidb.h"

namespace koli {
namespace {

constexpr int kLockAttempts = 100;             // one second in all
constexpr timespec kLockPause{0, 10'000'000};  // 10 ms
constexpr const char kRebuildPhoto[] = "R:photo\n";
constexpr int kBothStores = KOLI_MEDIA_DB | KOLI_PHOTO_DB;

/// The hash of a file's beginning (FNV-1a over its inode number, time of birth and bytes): the next batch may
/// get the inode of the last one, and begin with the same requests.
class Fingerprint {
  public:
    explicit Fingerprint(int fd) : fd_(fd) {
        struct statx status {};
        if (statx(fd, "", AT_EMPTY_PATH, STATX_INO | STATX_BTIME, &status) != 0) return;
        const std::string identity = std::to_string(status.stx_ino) + ' ' +
                                     std::to_string(status.stx_btime.tv_sec) + ' ' +
                                     std::to_string(status.stx_btime.tv_nsec);
        Add(identity.data(), identity.size());
    }

    /// Takes the bytes up to `offset` in; false when they could not be read.
    bool Advance(int64_t offset) {
        char block[4096];
        while (mark_.offset < offset) {
            const auto wanted = static_cast<size_t>(std::min<int64_t>(offset - mark_.offset, sizeof block));
            const ssize_t length = pread(fd_, block, wanted, mark_.offset);
            if (length <= 0) return false;
            Add(block, static_cast<size_t>(length));
            mark_.offset += length;
        }
        return true;
    }

    const KOLIBatchMark& mark() const { return mark_; }

  private:
    void Add(const char* bytes, size_t length) {
        for (size_t i = 0; i < length; ++i)
            mark_.hash = (mark_.hash ^ static_cast<unsigned char>(bytes[i])) * 0x100000001b3;
    }

    const int fd_;
    KOLIBatchMark mark_{0, 0xcbf29ce484222325};
};

/// How many bytes of the batch the photo database has already; 0 when nothing tells so, -1 when the batch
/// could not be read.
int64_t DoneBefore(int fd) {
    KOLIBatchMark mark{};
    struct stat status;
    if (PhotoDBMarkGet(&mark) != 0) return 0;
    if (fstat(fd, &status) != 0) return -1;
    if (mark.offset > status.st_size) return 0;
    Fingerprint found(fd);
    if (!found.Advance(mark.offset)) return -1;
    return found.mark().hash == mark.hash ? mark.offset : 0;
}

/// A writer that opened the queue just before the take-over may append its line only now.  Writers that take
/// a lock for their append lose no line: with the lock held, nothing new can come between the last look and
/// the removal.  One that never gives its lock back is not waited for longer than a second; it may be waiting
/// for the databases, so their open rows are committed first.  False when it is held still.
bool LockAgainstWriters(int fd) {
    for (int attempt = 0; attempt < kLockAttempts; ++attempt) {
        if (flock(fd, LOCK_EX | LOCK_NB) == 0) return true;
        if (errno != EWOULDBLOCK && errno != EINTR) return true;  // a file system without locks
        KOLIDBFlush();
        nanosleep(&kLockPause, nullptr);
    }
    return false;
}

/// For programs that look.
void TellLines(int fd) {
    struct stat status;
    if (fstat(fd, &status) == 0) WorkBatchLines(LineCount(fd, status.st_size));
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

/// Reads a line that had no newline once more, from `begin`, when nobody is at work on it.  False when
/// somebody is.
bool ReadTornLine(FILE* batch, int64_t begin, QueueLine* line, bool is_patient) {
    if (!LockAgainstWriters(fileno(batch)) && is_patient) return false;
    clearerr(batch);
    if (fseeko(batch, begin, SEEK_SET) == 0) QueueLineRead(batch, line);
    flock(fileno(batch), LOCK_UN);
    return true;
}

/// Where the lines are that wait behind the one at work.
struct Waiting {
    std::string batch;  // opened by this name, the batch has a position of its own
    int64_t begin;      // of the next line there
    const char* queue;
    bool is_new;  // to the photo database: no line at work has been executed there before
    WaitingRenames in_batch, in_queue;
};
Waiting waiting{"", 0, nullptr, false, {}, {}};

bool IsRenamedByWaiting(const char* path) {
    return waiting.in_batch.Holds(waiting.batch.c_str(), waiting.begin, path) ||
           waiting.in_queue.Holds(waiting.queue, 0, path);
}

/// Of a batch that may have been executed before nobody knows what stands where because of which line.
bool IsBroughtByWaiting(const char* path) {
    return waiting.is_new && (waiting.in_batch.Brings(waiting.batch.c_str(), waiting.begin, path) ||
                              waiting.in_queue.Brings(waiting.queue, 0, path));
}

/// Answers IsRenamedLater and IsBroughtLater as long as it lives.
struct LaterRenamesScope {
    LaterRenamesScope(FILE* batch, const char* queue, bool is_new) {
        waiting = {"/proc/self/fd/" + std::to_string(fileno(batch)), 0, queue, is_new, {}, {}};
        LaterRenamesSet(IsRenamedByWaiting, IsBroughtByWaiting);
    }
    ~LaterRenamesScope() {
        LaterRenamesSet(nullptr);
        waiting = {"", 0, nullptr, false, {}, {}};
    }
    LaterRenamesScope(const LaterRenamesScope&) = delete;
    LaterRenamesScope& operator=(const LaterRenamesScope&) = delete;
};

/// What these requests change in the photo database takes effect as a whole.
bool IsUnit(const QueueLine& line) {
    return line.length > 0 && strchr("NDdT", line.text[0]) != nullptr;
}

/// Executes a line for the stores that do not have it and do not refuse; `end` is where it ends.
void Execute(QueueLine* line, int64_t end, int64_t done_before, Fingerprint* executed) {
    int stores = kBothStores & ~KOLIDBRefusing();
    if (end <= done_before) stores &= ~KOLI_PHOTO_DB;
    const bool is_unit = (stores & KOLI_PHOTO_DB) != 0 && IsUnit(*line);
    if (is_unit) PhotoDBUnitBegin();
    QueueLineExecute(line, stores);
    if (is_unit)
        CaptionRemovalsNote();
    else
        CaptionRemovalsRun();
    if ((stores & KOLI_PHOTO_DB) != 0 && executed->Advance(end)) PhotoDBMarkSet(&executed->mark());
    if (is_unit) {
        PhotoDBUnitEnd(1);
        CaptionRemovalsRun();
    }
    KOLIDBTick();
}

/// A picture that the photo database knew already when its rebuild was repeated may have no row in the media
/// store yet: there the rebuild only adds.
void RepeatForMediaStore(QueueLine* line) {
    line->length = static_cast<size_t>(snprintf(line->text, sizeof line->text, "%s", kRebuildPhoto));
    line->end = QueueLine::kNewline;
    if ((KOLIDBRefusing() & KOLI_MEDIA_DB) == 0) QueueLineExecute(line, KOLI_MEDIA_DB);
}

}  // namespace

BatchEnd ProcessBatchLines(FILE* batch, const char* queue, bool is_repeated, bool is_patient) {
    const int64_t done_before = is_repeated ? DoneBefore(fileno(batch)) : 0;
    if (done_before < 0) return BatchEnd::kUnread;
    if (done_before > 0) CaptionRemovalsRecall();
    const LaterRenamesScope later_renames(batch, queue, !is_repeated || done_before > 0);
    Fingerprint executed(fileno(batch));
    QueueLine line;
    do {
        TellLines(fileno(batch));
        for (int64_t begin = ftello(batch); QueueLineRead(batch, &line); begin = ftello(batch)) {
            if (line.end == QueueLine::kFile && !ReadTornLine(batch, begin, &line, is_patient))
                return BatchEnd::kHeld;
            if (ferror(batch) != 0) return BatchEnd::kUnread;
            if (KOLIDBRefusing() == kBothStores) return BatchEnd::kRefused;
            waiting.begin = ftello(batch);
            const bool is_rebuild = strncmp(line.text, kRebuildPhoto, sizeof kRebuildPhoto - 1) == 0;
            WorkLineBegin(begin);
            Execute(&line, waiting.begin, done_before, &executed);
            if (is_rebuild && is_repeated && waiting.begin > done_before) RepeatForMediaStore(&line);
            WorkLineEnd();
        }
        if (ferror(batch) != 0) return BatchEnd::kUnread;
    } while (!IsReadToItsEnd(batch));
    return KOLIDBRefusing() != 0 ? BatchEnd::kRefused : BatchEnd::kDone;
}

}  // namespace koli
