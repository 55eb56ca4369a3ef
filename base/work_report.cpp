#include "base/work_report.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "base/path_names.h"
#include "base/regular_file.h"

namespace koli {
namespace {

constexpr uint32_t kLayout = 0x4B570001;
constexpr int kReadAttempts = 100;
constexpr timespec kReadPause{0, 100'000};  // 0.1 ms: a change takes much less

/// The file's content.
struct Area {
    uint32_t layout;
    std::atomic<uint32_t> sequence;  // odd while the report changes
    WorkReport report;
};
static_assert(std::atomic<uint32_t>::is_always_lock_free);

Area* area = nullptr;
bool has_problem = false;  // the file at work

int64_t Now() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

/// Changes the report as one step to whoever reads it.
template <typename Work>
void Change(Work work) {
    if (area == nullptr) return;
    const uint32_t before = area->sequence.load(std::memory_order_relaxed);
    area->sequence.store(before + 1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    work(area->report);
    area->sequence.store(before + 2, std::memory_order_release);
}

void ForgetFile(WorkReport& report) {
    report.path[0] = '\0';
    has_problem = false;
}

/// All its bytes are there: a page that the file system has no room for would end the process at its first
/// use.
int MakeFile(const char* file) {
    if (unlink(file) != 0 && errno != ENOENT) return -1;
    const int fd = open(file, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0640);
    if (fd < 0) return -1;
    const int error = fchmod(fd, 0640) == 0 ? posix_fallocate(fd, 0, sizeof(Area)) : errno;
    if (error == 0) return fd;
    close(fd);
    unlink(file);
    errno = error;
    return -1;
}

/// Reads the sequence number, which must be an even one.
bool ReadSequence(int fd, uint32_t* sequence) {
    return ReadAt(fd, offsetof(Area, sequence), sequence, sizeof *sequence) == sizeof *sequence &&
           *sequence % 2 == 0;
}

bool ReadOnce(int fd, WorkReport* report) {
    uint32_t before = 0, after = 0;
    if (!ReadSequence(fd, &before)) return false;
    std::atomic_thread_fence(std::memory_order_seq_cst);
    if (ReadAt(fd, offsetof(Area, report), report, sizeof *report) != sizeof *report) return false;
    std::atomic_thread_fence(std::memory_order_seq_cst);
    return ReadSequence(fd, &after) && before == after;
}

bool IsTrusted(int fd) {
    struct stat status;
    uint32_t layout = 0;
    return fstat(fd, &status) == 0 && (status.st_uid == 0 || status.st_uid == geteuid()) &&
           ReadAt(fd, offsetof(Area, layout), &layout, sizeof layout) == sizeof layout && layout == kLayout;
}

}  // namespace

bool WorkReportOpen(const char* file) {
    const int fd = MakeFile(file);
    if (fd < 0) return false;
    void* mapped = mmap(nullptr, sizeof(Area), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (mapped == MAP_FAILED) return false;
    if (madvise(mapped, sizeof(Area), MADV_DONTFORK) != 0) {
        munmap(mapped, sizeof(Area));
        return false;
    }
    if (area != nullptr) munmap(area, sizeof(Area));
    area = static_cast<Area*>(mapped);
    Change([](WorkReport& report) {
        report.pid = getpid();
        report.started = Now();
        ForgetFile(report);
    });
    area->layout = kLayout;
    return true;
}

void WorkBatchBegin(dev_t device, ino_t inode) {
    Change([=](WorkReport& report) {
        ForgetFile(report);
        report.batch_begun = Now();
        report.batch_device = device;
        report.batch_inode = inode;
        report.lines = report.lines_done = report.line_begin = 0;
        report.files_in_line = report.files = report.problems = 0;
    });
}

void WorkBatchLines(int64_t lines) {
    Change([=](WorkReport& report) { report.lines = lines; });
}

void WorkBatchEnd() {
    Change([](WorkReport& report) {
        ForgetFile(report);
        if (report.batch_begun == 0) return;
        report.batch_duration = Now() - report.batch_begun;
        report.batch_begun = 0;
        ++report.all_batches;
    });
}

void WorkLineBegin(int64_t offset) {
    Change([=](WorkReport& report) {
        ForgetFile(report);
        report.line_begin = offset;
        report.files_in_line = 0;
    });
}

void WorkLineEnd() {
    Change([](WorkReport& report) {
        ForgetFile(report);
        ++report.lines_done;
        ++report.all_lines;
    });
}

void WorkFile(const char* path) {
    if (area == nullptr || strcmp(area->report.path, path) == 0) return;
    Change([=](WorkReport& report) {
        ForgetFile(report);
        CopyText(report.path, sizeof report.path, path);
        ++report.files_in_line;
        ++report.files;
        ++report.all_files;
    });
}

void WorkProblem(const char* path, const char* reason) {
    Change([=](WorkReport& report) {
        report.problem_time = Now();
        CopyText(report.problem_path, sizeof report.problem_path, path);
        CopyText(report.problem_reason, sizeof report.problem_reason, reason);
        if (has_problem && strcmp(report.path, path) == 0) return;
        has_problem = true;
        ++report.problems;
        ++report.all_problems;
    });
}

bool WorkReportRead(const char* file, WorkReport* report) {
    const RegularFile opened(file);
    if (!opened.ok() || !IsTrusted(opened.descriptor())) return false;
    for (int attempt = 0; attempt < kReadAttempts; ++attempt) {
        if (ReadOnce(opened.descriptor(), report)) {
            for (char* text : {&report->path[kPathSize - 1], &report->problem_path[kPathSize - 1],
                               &report->problem_reason[sizeof report->problem_reason - 1]})
                *text = '\0';
            return true;
        }
        nanosleep(&kReadPause, nullptr);
    }
    return false;
}

}  // namespace koli
