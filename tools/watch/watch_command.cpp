#include "tools/watch/watch_command.h"

#include <sys/signalfd.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "base/unique_fd.h"
#include "tools/ctl/membership.h"
#include "tools/ctl/output.h"
#include "tools/ctl/queue_service.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/sync_plan.h"
#include "tools/ctl/tree_compare.h"
#include "tools/ctl/watch_state.h"
#include "tools/watch/watcher.h"

namespace koli::watch {
namespace {

/// Requests through the queue file; what goes wrong is told once, until it goes right again.
class QueueSink : public RequestSink {
  public:
    QueueSink(const ctl::Context& context, ctl::WatchState* state) : context_(context), state_(*state) {}

    bool Queue(const std::string& lines) override;
    bool Compare(const std::string& folder, bool is_top, std::string* lines) override;
    bool IsQueueEmpty() override;
    void Tell(const std::vector<ctl::ShareState>& shares) override { state_.Tell(shares); }

  private:
    bool TellOnce(std::string* told, const std::string& trouble);

    const ctl::Context& context_;
    ctl::WatchState& state_;
    std::string told_queue_;
    std::string told_daemon_;
    std::string told_compare_;
};

/// True when there is no trouble.
bool QueueSink::TellOnce(std::string* told, const std::string& trouble) {
    if (!trouble.empty() && trouble != *told) ctl::Complain("%s", trouble.c_str());
    *told = trouble;
    return trouble.empty();
}

bool QueueSink::Queue(const std::string& lines) {
    const auto [batch, wake] = ctl::QueueSubmit(context_.places, lines);
    const bool is_written = batch.error.empty();
    if (!TellOnce(&told_queue_, is_written ? ""
                                           : "cannot queue requests in " + context_.places.queue + ": " +
                                                 batch.error + "; they are kept and tried again"))
        return false;
    switch (wake) {
        case ctl::Wake::kWoken:
            return TellOnce(&told_daemon_, "");
        case ctl::Wake::kNotRunning:
            TellOnce(&told_daemon_, "the daemon is not running; the requests wait until it starts");
            return true;
        case ctl::Wake::kNotPermitted:
            TellOnce(&told_daemon_, "no permission to wake the daemon" +
                                        ctl::JoinHint(context_.places.service) +
                                        "; the requests wait for the next signal");
            return true;
    }
    return true;
}

bool QueueSink::Compare(const std::string& folder, bool is_top, std::string* lines) {
    ctl::StoreReader store;
    if (!store.Open(context_.places)) return TellOnce(&told_compare_, store.error());
    ctl::SyncPlan plan(ctl::SyncPlan::kRequests);
    const ctl::CompareResult result =
        ctl::TreeCompare(store, folder, {.albums = true, .allow_empty = !is_top},
                         [&](ctl::Change change, const std::string& path) { plan.Add(change, path); });
    constexpr timespec kNoted{0, 20'000'000};  // a rename is seen a moment before it is noted
    nanosleep(&kNoted, nullptr);
    if (!TellOnce(&told_compare_, store.error())) return false;
    if (result.status == ctl::CompareResult::kTopUnreadable) return true;  // it has gone since
    if (result.status == ctl::CompareResult::kTopEmpty) {
        ctl::Complain("%s is empty, but files are stored below it: is it mounted? What is stored stays",
                      folder.c_str());
        return true;
    }
    if (plan.requests() == 0) return true;
    printf("%s differs: %s\n", ctl::Printable(folder).c_str(),
           ctl::Counted(plan.requests(), "request").c_str());
    fflush(stdout);
    *lines = plan.TakeLines();
    return true;
}

bool QueueSink::IsQueueEmpty() {
    for (const std::string& path : {context_.places.queue, context_.places.batch}) {
        struct stat status;
        if (stat(path.c_str(), &status) == 0 && status.st_size > 0) return false;
    }
    return true;
}

/// Enters the folders; false, with a complaint, when another watcher would ask for the same as this one.
bool MayWatch(const ctl::Context& context, const std::vector<std::string>& tops, ctl::WatchState* state) {
    const pid_t other = state->Enter(tops);
    if (other > 0)
        ctl::Complain("process %d watches there already: a folder is watched once, with all that is in it",
                      other);
    if (other < 0)
        ctl::Complain("cannot write in %s: %s; a second watcher of these folders would not be noticed",
                      context.places.watchers.c_str(), strerror(errno));
    return other <= 0;
}

/// A descriptor that can be read once the watcher is to end.
UniqueFd StopDescriptor() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return UniqueFd(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

}  // namespace

int Watch(const ctl::Context& context, const std::vector<std::string>& folders) {
    std::vector<std::string> tops;
    for (const std::string& folder : folders) {
        tops.push_back(folder.empty() ? "" : ctl::DaemonPath(folder));
        const char* refusal =
            tops.back() == "/" ? "the root folder cannot be watched" : ctl::PathRefusal(tops.back());
        if (refusal == nullptr) continue;
        ctl::Complain("%s: %s", folder.c_str(), refusal);
        return ctl::kExitUsage;
    }
    tops = ctl::WithoutNested(std::move(tops));
    ctl::WatchState state(context.places.watchers);
    if (!MayWatch(context, tops, &state)) return ctl::kExitUsage;
    const UniqueFd stop = StopDescriptor();
    if (!stop.valid()) {
        ctl::Complain("cannot wait for signals: %s", strerror(errno));
        return ctl::kExitFiles;
    }
    QueueSink sink(context, &state);
    return Watcher(tops, &sink).Run(stop.get()) == 0 ? ctl::kExitDone : ctl::kExitFiles;
}

}  // namespace koli::watch
