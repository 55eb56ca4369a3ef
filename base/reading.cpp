#include "base/reading.h"

#include <cstring>
#include <ctime>

#include "base/file_reading.h"
#include "base/log.h"
#include "base/media_info.h"
#include "base/passing_error.h"
#include "base/path_names.h"

namespace koli {

int64_t reading_limit = 10'000'000'000;
void (*reading_tick)() = nullptr;

namespace {

constexpr const char kModule[] = "reading";
constexpr int64_t kSecond = 1'000'000'000;

struct Reading {
    char path[kPathSize];
    int64_t begun;      // processor time, ns
    int64_t next_look;  // clock, ns; before it the limit cannot have been reached
    bool is_spent;
    bool has_failed;
};
Reading current;

int64_t Now(clockid_t clock) {
    struct timespec now {};
    clock_gettime(clock, &now);
    return int64_t{now.tv_sec} * kSecond + now.tv_nsec;
}

}  // namespace

void ReadingBegin(const char* path) {
    CopyText(current.path, sizeof current.path, path);
    current.begun = Now(CLOCK_PROCESS_CPUTIME_ID);
    current.next_look = Now(CLOCK_MONOTONIC) + reading_limit;
    current.is_spent = false;
    current.has_failed = false;
}

void ReadingOpen(const char* path) {
    if (strncmp(path, current.path, sizeof current.path - 1) != 0) ReadingBegin(path);
}

/// One thread cannot use more processor time than the clock has gone on: the clock, which costs next to
/// nothing, tells when it is worth asking for the other.
bool ReadingMayGoOn() {
    if (current.is_spent) return false;
    if (reading_tick != nullptr) reading_tick();
    const int64_t now = Now(CLOCK_MONOTONIC);
    if (now < current.next_look) return true;
    const int64_t used = Now(CLOCK_PROCESS_CPUTIME_ID) - current.begun;
    current.next_look = now + reading_limit - used;
    current.is_spent = used >= reading_limit;
    if (!current.is_spent) return true;
    LogFirstForget();
    KOLI_LOG("%s (%d) More than %d seconds of processor time, the rest is taken for unreadable: %s",
             static_cast<int>(reading_limit / kSecond), current.path);
    return false;
}

void ReadingFailed(int error) {
    if (error == 0 || !IsPassingError(error)) return;
    if (!current.has_failed) KOLI_LOG("%s (%d) Failed to read %s: %s", current.path, strerror(error));
    ReadingFailedUnlogged(error);
}

void ReadingFailedUnlogged(int error) {
    if (error == 0 || !IsPassingError(error)) return;
    current.has_failed = true;
    FileTrouble("The file cannot be read", error);
}

bool ReadingIsWhole() {
    return !current.is_spent && !current.has_failed;
}

}  // namespace koli
