#include "video/probe_ahead.h"

#include <poll.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <optional>

#include "base/known_path.h"
#include "guard/child_signals.h"
#include "guard/guard_steps.h"
#include "guard/probe_guard.h"
#include "index/record/run_ahead.h"
#include "index/record/util.h"
#include "video/guarded_child.h"
#include "video/guarded_probe.h"

namespace koli {
namespace {

/// Of processor time, enforced by the kernel: while the daemon is at something else nobody watches the child.
constexpr rlim_t kUnwatchedSeconds = 1;

constexpr int kMostProcessors = 8;
constexpr int kMostHeld = 64;  // files started and not taken, in nested folders: 28 KB each

constexpr int64_t kSecond = 1'000'000'000;

int64_t Nanoseconds(const timespec& time) {
    return int64_t{time.tv_sec} * kSecond + time.tv_nsec;
}

int64_t Now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return Nanoseconds(now);
}

int ProcessorCount() {
    cpu_set_t set;
    return sched_getaffinity(0, sizeof set, &set) == 0 ? std::min(CPU_COUNT(&set), kMostProcessors) : 1;
}

bool IsEqual(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool IsSameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           IsEqual(a.st_mtim, b.st_mtim) && IsEqual(a.st_ctim, b.st_ctim);
}

struct Free {
    void operator()(char* text) const { free(text); }
};

}  // namespace

struct ProbeAhead::File {
    std::unique_ptr<char, Free> path;
    bool was_started = false;
    struct stat status;  // before the start
    int64_t begun;       // clock, ns
    std::optional<GuardedChild> child;

    bool IsRunning() const { return child && child->pid() > 0; }
    void Stop() {
        if (IsRunning()) --running_;
        child.reset();
    }
};

ProbeAhead* ProbeAhead::innermost_ = nullptr;
int ProbeAhead::running_ = 0;
int ProbeAhead::held_ = 0;

ProbeAhead::ProbeAhead(ProbeFunction probe, int processors)
    : outer_(innermost_), probe_(probe), processors_(processors > 0 ? processors : ProcessorCount()) {
    innermost_ = this;
}

ProbeAhead::~ProbeAhead() {
    while (count_ > 0)
        RemoveFirst();
    innermost_ = outer_;
}

ProbeAhead* ProbeAhead::Current() {
    return innermost_ != nullptr && innermost_->count_ > 0 ? innermost_ : nullptr;
}

ProbeAhead::File& ProbeAhead::FileAt(int index) const {
    return files_[static_cast<size_t>((first_ + index) % kMost)];
}

void ProbeAhead::RemoveFirst() {
    File& file = FileAt(0);
    file.Stop();
    if (file.was_started) --held_;
    file.was_started = false;
    file.path.reset();
    first_ = (first_ + 1) % kMost;
    --count_;
}

void ProbeAhead::Announce(const char* path) {
    const ProbeGuardStatus guards = ProbeGuardStatusGet();
    if (!IsWanted() || !(guards.system_call_filter || guards.file_rules)) return;
    if (ReadingMarkLook(path) != PastReading::kNothing) return;
    if (files_ == nullptr && RunAheadIsAllowed()) files_.reset(new (std::nothrow) File[kMost]);
    if (files_ == nullptr) return;
    if (count_ == kMost) RemoveFirst();
    FileAt(count_).path.reset(strdup(path));
    if (FileAt(count_).path != nullptr) ++count_;
}

bool ProbeAhead::Take(const char* path, MediaInfo* record, FileReading& reading, int* result) {
    int before = 0;
    while (before < count_ && strcmp(FileAt(before).path.get(), path) != 0)
        ++before;
    if (before == count_) return false;
    for (; before > 0; --before)
        RemoveFirst();  // its turn never came
    const bool is_done = FileAt(0).child && Finish(FileAt(0), record, reading, result);
    RemoveFirst();
    return is_done;
}

bool ProbeAhead::Finish(File& file, MediaInfo* record, FileReading& reading, int* result) {
    const KnownPath now(file.path.get());
    if (now.file() == nullptr || !IsSameFile(*now.file(), file.status)) return false;
    const ChildEndScope child_end;  // before the look, so that an end behind it is noticed
    Reap();
    GuardedChild& child = *file.child;
    if (child.pid() > 0) {
        WatchSettings settings;
        settings.sleep = Sleep;
        settings.polls = static_cast<uint32_t>((Now() - file.begun) / Nanoseconds(settings.interval));
        --running_;  // from here on it is the one whose turn it is
        if (!child.Watch(reading, settings)) {
            child.Tell(reading);
            ProbedFieldsTake(child.record(), record);
            return *result = -1, true;
        }
    } else {
        RunOn();
    }
    if (!WIFEXITED(child.status()) || child.failure().kind == FailureKind::kPassing) return false;
    child.Tell(reading);
    ProbedFieldsTake(child.record(), record);
    *result = WEXITSTATUS(child.status());
    return true;
}

void ProbeAhead::RunOn() {
    Reap();
    for (int i = 0; i < count_ && running_ < processors_ - 1 && held_ < kMostHeld; ++i)
        if (!FileAt(i).was_started) Start(FileAt(i));
}

/// Says nothing: what does not work here is tried again, and told, at the file's turn.
void ProbeAhead::Start(File& file) {
    file.was_started = true;
    ++held_;
    const char* const path = file.path.get();
    const KnownPath known(path);
    if (known.file() == nullptr) return;
    file.status = *known.file();
    file.begun = Now();
    file.child.emplace();
    GuardedChild& child = *file.child;
    const auto body = [&](pid_t parent, FileReading& reading) {
        if (!LimitResource(RLIMIT_CPU, kUnwatchedSeconds)) return 1;
        return ProbeInChild(path, &child.record(), reading, probe_, parent);
    };
    if (child.valid() && MediaInfoFill(known, &child.record()) == 0 && child.Start(path, std::cref(body)))
        ++running_;
    else
        file.child.reset();
}

/// Returns how many have ended.
int ProbeAhead::Reap() {
    const int before = running_;
    for (const ProbeAhead* ahead = innermost_; ahead != nullptr; ahead = ahead->outer_)
        for (int i = 0; i < ahead->count_; ++i)
            if (ahead->FileAt(i).IsRunning() && ahead->FileAt(i).child->HasEnded()) --running_;
    return before - running_;
}

/// What runs ahead makes room for `pid`, whose turn it is.
void ProbeAhead::KeepWithinMemory(pid_t pid) {
    if (running_ == 0) return;
    int64_t sum = ProbeChildResidentGet(pid);
    for (const bool is_stopped : {false, true}) {
        if (is_stopped && sum * 1024 <= static_cast<int64_t>(MachineMemory() / 2)) return;
        for (const ProbeAhead* ahead = innermost_; ahead != nullptr; ahead = ahead->outer_)
            for (int i = 0; i < ahead->count_; ++i) {
                File& file = ahead->FileAt(i);
                if (!file.IsRunning()) continue;
                if (is_stopped)
                    file.Stop();
                else
                    sum += ProbeChildResidentGet(file.child->pid());
            }
    }
}

void ProbeAhead::Sleep(pid_t pid, const timespec& interval, const sigset_t& mask) {
    const int64_t end = Now() + Nanoseconds(interval);
    innermost_->RunOn();
    for (int64_t left = end - Now(); left > 0; left = end - Now()) {
        const timespec rest{static_cast<time_t>(left / kSecond), static_cast<long>(left % kSecond)};
        if (ppoll(nullptr, 0, &rest, &mask) == 0) break;
        if (Reap() == 0) return;  // the child's own end, or a signal
        siginfo_t its_end{};
        if (waitid(P_PID, static_cast<id_t>(pid), &its_end, WEXITED | WNOHANG | WNOWAIT) != 0 ||
            its_end.si_pid != 0)
            return;
        innermost_->RunOn();
    }
    KeepWithinMemory(pid);
}

}  // namespace koli
