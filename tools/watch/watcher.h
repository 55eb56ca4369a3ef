// Keeps the databases in step with some shares: reads what the kernel notes, asks for what has settled, and
// compares where notes are missing.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tools/ctl/watch_state.h"
#include "tools/watch/composer.h"
#include "tools/watch/event_fold.h"
#include "tools/watch/folder_watches.h"
#include "tools/watch/pending_changes.h"

namespace koli::watch {

/// Where the requests go.
class RequestSink {
  public:
    virtual ~RequestSink() = default;
    /// Queues the lines, all or none, and wakes the daemon.  False: nothing was written, try again later.
    virtual bool Queue(const std::string& lines) = 0;
    /// What differs between the databases and the folder, as lines of the queue; what has moved meanwhile has
    /// been noted when it returns.  `is_top`: an empty one may be a share that is not mounted.  False: try
    /// again later.
    virtual bool Compare(const std::string& folder, bool is_top, std::string* lines) = 0;
    /// True when nothing waits in the queue and no batch is being executed.
    virtual bool IsQueueEmpty() = 0;
    /// Hears how the databases stand to the shares, whenever that changes.
    virtual void Tell(const std::vector<ctl::ShareState>& shares) { (void)shares; }
};

class Watcher {
  public:
    /// `sink` must outlive this.  `tops` are absolute paths, none inside another.
    Watcher(const std::vector<std::string>& tops, RequestSink* sink);

    /// Opens the shares, compares them and watches until `stop`, a descriptor, can be read.  What is pending
    /// then is queued.  Returns 0; -1, with a complaint, when nothing can be watched at all.
    int Run(int stop);

    // Its steps; `now` is in milliseconds of a clock that does not jump.

    /// False, with a complaint, when nothing can be watched at all.
    bool Open();
    /// Takes what has been noted and asks for what is due.
    void Turn(int64_t now);
    /// Asks for all that is pending.
    void Finish(int64_t now);

  private:
    struct Top {
        std::string path;
        bool is_open = false;
        dev_t device = 0;
        ino_t inode = 0;
        bool is_told = false;  // that it is away
        ctl::ShareState state = {};
    };
    bool OpenTop(Top* top);
    void LoseTop(Top* top);
    void CheckTops();
    bool IsThere(const Top& top) const;
    void OpenAll();
    void TellLimit();

    void ReadEvents(int64_t now);
    void ApplyEvent(const FolderEvent& event, int64_t now);
    void EventsLost(int64_t now);
    void StartOver();

    bool IsQuiet() const;
    void TellStates(bool is_check);
    bool Send();
    void CompareAll();
    void CompareWhenExecuted(int64_t now);
    void Compare(int64_t now);
    bool HasMoves() const { return pending_.HasMoves() || fold_.HasOpenMoves(); }
    int TimeoutOf(int64_t now) const;

    RequestSink& sink_;
    std::vector<Top> tops_;
    FolderWatches watches_;
    PendingChanges pending_;
    EventFold fold_{&watches_, &pending_};
    Composer composer_;
    int64_t next_check_ = 0;
    int64_t next_compare_ = 0;
    int64_t next_try_ = 0;  // of a comparison
    int64_t next_send_ = 0;
    int compares_dropped_ = 0;  // in a row
    int64_t lost_since_ = 0;    // 0: no event is missing
    int64_t lost_last_ = 0;
    bool is_limit_told_ = false;
    bool is_in_step_ = false;
};

}  // namespace koli::watch
