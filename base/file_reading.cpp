#include "base/file_reading.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include "base/log.h"
#include "base/passing_error.h"
#include "base/work_report.h"

namespace koli {
namespace {

constexpr const char kModule[] = "reading";
constexpr int64_t kSecond = 1'000'000'000;

int64_t Now(clockid_t clock) {
    struct timespec now {};
    clock_gettime(clock, &now);
    return int64_t{now.tv_sec} * kSecond + now.tv_nsec;
}

}  // namespace

FileReading::FileReading(const char* path, void (*tick)(), int64_t limit)
    : path_(path),
      is_marked_(true),
      tick_(tick),
      past_(ReadingMarkLook(path)),
      limit_(limit),
      begun_(Now(CLOCK_PROCESS_CPUTIME_ID)),
      next_look_(Now(CLOCK_MONOTONIC) + limit) {
    ReadingMarkSet(path_);
    WorkFile(path_);
}

FileReading::FileReading(const char* path, InChild)
    : path_(path),
      is_marked_(false),
      tick_(nullptr),
      past_(PastReading::kNothing),
      limit_(kLimit),
      begun_(Now(CLOCK_PROCESS_CPUTIME_ID)),
      next_look_(Now(CLOCK_MONOTONIC) + limit_) {}

FileReading::~FileReading() {
    if (is_marked_) ReadingMarkSet(nullptr);
}

/// One thread cannot use more processor time than the clock has gone on: the clock, which costs next to
/// nothing, tells when it is worth asking for the other.
bool FileReading::MayGoOn() {
    if (is_spent_) return false;
    if (tick_ != nullptr) tick_();
    const int64_t now = Now(CLOCK_MONOTONIC);
    if (now < next_look_) return true;
    const int64_t used = Now(CLOCK_PROCESS_CPUTIME_ID) - begun_;
    next_look_ = now + limit_ - used;
    is_spent_ = used >= limit_;
    if (!is_spent_) return true;
    KOLI_LOG("More than %d seconds of processor time, the rest is taken for unreadable: %s",
             static_cast<int>(limit_ / kSecond), path_);
    Trouble("reading it takes too much processor time");
    return false;
}

void FileReading::ReadFailed(int error) {
    if (error != 0 && IsPassingError(error) && !has_failed_)
        KOLI_LOG("Failed to read %s: %s", path_, strerror(error));
    ReadFailedUnlogged(error);
}

void FileReading::ReadFailedUnlogged(int error) {
    if (error == 0) return;
    const bool is_passing = IsPassingError(error);
    has_failed_ = has_failed_ || is_passing;
    Note(is_passing ? FailureKind::kPassing : FailureKind::kUnparsed, "the file cannot be read", error);
}

void FileReading::Trouble(const char* what, int error) {
    const bool is_passing = error != 0 && IsPassingError(error);
    Note(is_passing ? FailureKind::kPassing : FailureKind::kTrouble, what, error);
}

void FileReading::TakeOver(const Failure& of_child) {
    if (of_child.kind == FailureKind::kPassing) {
        ReadFailed(of_child.error);
    } else if (*of_child.reason != '\0') {
        CannotParse(of_child.reason);
    }
}

void FileReading::Note(FailureKind kind, const char* what, int error) {
    if (kind <= failure_.kind) return;
    failure_.kind = kind;
    failure_.error = error;
    snprintf(failure_.reason, sizeof failure_.reason, "%s%s%s", what, error != 0 ? ": " : "",
             error != 0 ? strerror(error) : "");
}

}  // namespace koli
