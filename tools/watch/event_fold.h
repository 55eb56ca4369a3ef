// From the kernel's notes to what happened: a move is two notes with one cookie, a folder that appears must
// be watched before it is looked into, and only files that the daemon would store count.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/watch/folder_watches.h"
#include "tools/watch/pending_changes.h"

namespace koli::watch {

class EventFold {
  public:
    /// Both must outlive this.
    EventFold(FolderWatches* watches, PendingChanges* pending) : watches_(*watches), pending_(*pending) {}

    void Apply(const FolderEvent& event, int64_t now);

    /// After all notes so far have been applied: entries that left and did not come back under another name
    /// by now are gone, or elsewhere.
    void Settle(int64_t now);

    bool HasOpenMoves() const { return !leaving_.empty(); }

    /// The folder, a top or a mount point, is out of reach: forgets it without taking anything in it for
    /// gone.
    void Lost(const std::string& folder);

  private:
    struct Leaving {
        uint32_t cookie;
        std::string path;
        int64_t time;
    };
    bool WatchTree(const std::string& folder, int64_t now);
    void CloseMove(const FolderEvent& event, const std::string& path, int64_t now);
    void FolderAppeared(const std::string& path, int64_t now);
    void FolderArrived(const std::string& path, const std::string& from, int64_t now);
    void EntryCreated(const std::string& path, bool is_folder, int64_t now);
    void EntryVanished(const std::string& path, int64_t now);
    void EntryArrived(const FolderEvent& event, const std::string& path, int64_t now);
    void FileArrived(const std::string& path, const std::string& from, int64_t now);
    void FileLeft(const std::string& path, int64_t now);
    std::string TakeLeaving(uint32_t cookie);
    void Forget(const std::string& folder);

    FolderWatches& watches_;
    PendingChanges& pending_;
    std::vector<Leaving> leaving_;  // rarely more than one: the kernel notes both halves in one go
};

}  // namespace koli::watch
