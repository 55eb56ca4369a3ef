#include "tools/watch/watcher.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

#include "tools/ctl/context.h"
#include "tools/ctl/output.h"

namespace koli::watch {
namespace {

// Milliseconds.
constexpr int64_t kTick = 500;                  // while something is pending
constexpr int64_t kCheck = 10'000;              // are the shares there, has the queue been executed
constexpr int64_t kCompareGaps = 600'000;       // folders that cannot be watched
constexpr int64_t kSendAgain = 5000;            // after a failed write
constexpr int64_t kCompareAgain = 60'000;       // after a failed comparison
constexpr int64_t kLostQuiet = 2000;            // events were dropped: start over when it has become quiet,
constexpr int64_t kLostLongest = 30'000;        // or after so long
constexpr int kMaxDropped = 10;                 // comparisons that were made while something moved
constexpr size_t kMaxUnsent = size_t{4} << 20;  // bytes of lines; beyond it everything is compared instead

/// Lets notes gather: fewer reads, and the kernel merges equal ones.
void Gather() {
    constexpr timespec kGather{0, 20'000'000};
    nanosleep(&kGather, nullptr);
}

int64_t Now() {
    timespec now;
    clock_gettime(CLOCK_BOOTTIME, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

long WatchLimit() {
    long limit = 0;
    FILE* file = fopen("/proc/sys/fs/inotify/max_user_watches", "re");
    if (file == nullptr) return 0;
    if (fscanf(file, "%ld", &limit) != 1) limit = 0;  // NOLINT(cert-err34-c): the kernel prints a number
    fclose(file);
    return limit;
}

}  // namespace

Watcher::Watcher(const std::vector<std::string>& tops, RequestSink* sink) : sink_(*sink) {
    for (const std::string& path : tops)
        tops_.push_back({path});
}

bool Watcher::Open() {
    if (!watches_.Open()) {
        ctl::Complain("cannot watch folders: %s (see fs.inotify.max_user_instances)", strerror(errno));
        return false;
    }
    OpenAll();
    printf("watching %s\n", ctl::Counted(static_cast<int64_t>(watches_.size()), "folder").c_str());
    fflush(stdout);
    return true;
}

int Watcher::Run(int stop) {
    if (!Open()) return -1;
    for (;;) {
        pollfd polled[] = {{watches_.descriptor(), POLLIN, 0}, {stop, POLLIN, 0}};
        poll(polled, std::size(polled), TimeoutOf(Now()));
        if (polled[1].revents != 0) break;
        if (polled[0].revents != 0) Gather();
        Turn(Now());
    }
    Finish(Now());
    return 0;
}

int Watcher::TimeoutOf(int64_t now) const {
    const bool is_busy =
        !pending_.empty() || fold_.HasOpenMoves() || !composer_.lines().empty() || lost_since_ != 0;
    return static_cast<int>(is_busy ? kTick : std::clamp<int64_t>(next_check_ - now, 0, kCheck));
}

// The shares.

bool Watcher::IsThere(const Top& top) const {
    struct stat status;
    return stat(top.path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_dev == top.device &&
           status.st_ino == top.inode;
}

bool Watcher::OpenTop(Top* top) {
    struct stat status;
    if (stat(top->path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        if (!top->is_told)
            ctl::Complain("%s is not there; it is watched as soon as it is", top->path.c_str());
        top->is_told = true;
        return false;
    }
    top->device = status.st_dev;
    top->inode = status.st_ino;
    std::vector<FolderWatches::Met> met;
    if (!watches_.AddTree(top->path, true, &met))
        watches_.gaps.linked = true;  // compared from time to time at least
    top->is_open = true;
    top->is_told = false;
    return true;
}

/// What is in a share that vanishes stays stored.
void Watcher::LoseTop(Top* top) {
    ctl::Complain("%s is not there any more; what is stored of it stays", top->path.c_str());
    fold_.Lost(top->path);
    top->is_open = false;
    top->is_told = true;
}

void Watcher::OpenAll() {
    for (Top& top : tops_)
        if (!top.is_open && OpenTop(&top)) composer_.AddCompare(top.path);
    TellLimit();
}

void Watcher::CheckTops() {
    for (Top& top : tops_)
        if (top.is_open && !IsThere(top)) LoseTop(&top);
    OpenAll();
}

void Watcher::TellLimit() {
    if (!watches_.gaps.limit || is_limit_told_) return;
    ctl::Complain(
        "this machine allows %ld folders to be watched, and there are more: the rest is only compared every "
        "%lld "
        "minutes; raise fs.inotify.max_user_watches (sysctl -w fs.inotify.max_user_watches=NUMBER) and start "
        "again",
        WatchLimit(), static_cast<long long>(kCompareGaps / 60'000));
    is_limit_told_ = true;
}

// The events.

void Watcher::ReadEvents(int64_t now) {
    if (!watches_.Read([&](const FolderEvent& event) { ApplyEvent(event, now); })) EventsLost(now);
    TellLimit();
}

void Watcher::ApplyEvent(const FolderEvent& event, int64_t now) {
    if (lost_since_ != 0) {
        lost_last_ = now;
        return;
    }
    constexpr uint32_t kTopGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;
    const auto is_top = [&](const Top& top) { return top.is_open && top.path == event.folder; };
    const auto top = std::ranges::find_if(tops_, is_top);
    if (top != tops_.end() && (event.mask & kTopGone) != 0)
        LoseTop(&*top);
    else
        fold_.Apply(event, now);
}

/// Paths can be wrong from here on, so nothing more is taken from the events.
void Watcher::EventsLost(int64_t now) {
    if (lost_since_ == 0) {
        ctl::Complain(
            "the kernel dropped notes of changes; the shares are compared as soon as it is quieter");
        composer_.Add(pending_.TakeAll(now));
        lost_since_ = now;
    }
    lost_last_ = now;
}

void Watcher::StartOver() {
    lost_since_ = 0;
    for (Top& top : tops_) {
        if (top.is_open) fold_.Lost(top.path);
        top.is_open = false;
    }
    if (!watches_.Open()) ctl::Complain("cannot watch folders: %s", strerror(errno));
    OpenAll();
}

// The requests.

void Watcher::Turn(int64_t now) {
    ReadEvents(now);
    fold_.Settle(now);
    if (lost_since_ != 0 && (now - lost_last_ >= kLostQuiet || now - lost_since_ >= kLostLongest))
        StartOver();
    const bool is_check = now >= next_check_;
    if (is_check) next_check_ = now + kCheck;
    // Nothing is asked for of a share that has just gone.
    if (is_check || !pending_.empty()) CheckTops();
    if ((watches_.gaps.limit || watches_.gaps.linked) && now >= next_compare_) {
        if (next_compare_ != 0) CompareAll();
        next_compare_ = now + kCompareGaps;
    }
    composer_.Add(pending_.TakeDue(now));
    if (now >= next_send_ && !Send()) next_send_ = now + kSendAgain;
    if (is_check) CompareWhenExecuted(now);
    TellStates(is_check);
}

/// Nothing has been noted that the daemon has not been told, or that is still to be compared.
bool Watcher::IsQuiet() const {
    return lost_since_ == 0 && pending_.empty() && !HasMoves() && composer_.lines().empty() &&
           !composer_.IsWaiting();
}

void Watcher::TellStates(bool is_check) {
    using Kind = ctl::ShareState::Kind;
    is_in_step_ = IsQuiet() && (is_in_step_ || (is_check && sink_.IsQueueEmpty()));
    bool is_new = false;
    std::vector<ctl::ShareState> states;
    for (Top& top : tops_) {
        const Kind kind = !top.is_open ? Kind::kAway : is_in_step_ ? Kind::kInStep : Kind::kPending;
        if (kind != top.state.kind) {
            const bool was_or_is = kind == Kind::kInStep || top.state.kind == Kind::kInStep;
            top.state = {top.path, kind, was_or_is ? time(nullptr) : top.state.in_step};
            is_new = true;
        }
        states.push_back({top.path, kind, top.state.in_step});
    }
    if (is_new) sink_.Tell(states);
}

/// A comparison against a queue that is still to be executed would ask for everything in it again, and one
/// between a move and its request would take what moved for gone.
void Watcher::CompareWhenExecuted(int64_t now) {
    const bool is_told = !HasMoves() && composer_.lines().empty();
    if (!composer_.IsWaiting() || now < next_try_ || !is_told || !sink_.IsQueueEmpty()) return;
    ReadEvents(now);
    if (HasMoves()) return;
    if (!composer_.Executed()) CompareAll();
    Compare(now);
}

bool Watcher::Send() {
    if (composer_.lines().empty()) return true;
    if (sink_.Queue(composer_.lines())) {
        composer_.TakeLines();
        return true;
    }
    if (composer_.lines().size() > kMaxUnsent) {
        composer_.TakeLines();
        CompareAll();
    }
    return false;
}

void Watcher::CompareAll() {
    for (const Top& top : tops_)
        if (top.is_open) composer_.AddCompare(top.path);
}

/// What was found while something moved is worth little; when it never rests, at least the moves go first.
void Watcher::Compare(int64_t now) {
    for (const std::string& folder : composer_.TakeCompares()) {
        const bool is_top = std::ranges::any_of(tops_, [&](const Top& top) { return top.path == folder; });
        std::string found;
        const bool is_compared = sink_.Compare(folder, is_top, &found);
        if (!is_compared) next_try_ = now + kCompareAgain;
        ReadEvents(now);
        if (!is_compared || (HasMoves() && ++compares_dropped_ <= kMaxDropped)) {
            composer_.AddCompare(folder);
            continue;
        }
        compares_dropped_ = 0;
        composer_.Add(pending_.TakeMoves());
        composer_.AddFound(std::move(found));
    }
    Send();
}

void Watcher::Finish(int64_t now) {
    ReadEvents(now);
    fold_.Settle(INT64_MAX);
    CheckTops();
    composer_.Add(pending_.TakeAll(now));
    if (!Send())
        ctl::Complain("some changes could not be queued; the comparison at the next start finds them");
    else
        Compare(now);
}

}  // namespace koli::watch
