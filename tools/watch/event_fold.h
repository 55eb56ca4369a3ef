// From the kernel's notes to what happened: a move is two notes with one cookie, a folder that appears must
// be watched before it is looked into, and only files that the daemon would store count.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/watch/folder_tree.h"
#include "tools/watch/pending_changes.h"

namespace koli::watch {

/// One note about an entry of a watched folder; `mask` and `cookie` as inotify(7) has them.
struct FolderEvent {
    FolderId folder;
    uint32_t mask;
    uint32_t cookie;
    std::string_view name;
};

/// True at and in the bin of a share.  Not of a photo share: what comes back from there has its captions and
/// rights.
bool IsUnwatchedBin(const std::string& path);

/// What the fold needs from the file system.
class FolderPort {
  public:
    enum Entry {
        kGrowing,     // a file whose writer is still to close it
        kWhole,       // a further name of a complete file: nobody will close it after writing
        kLinkedTree,  // a link to a folder: walked by the daemon, not watched
    };
    virtual ~FolderPort() = default;
    /// Watches a new folder and all folders below it, adding those to the tree.
    virtual void WatchTree(FolderId folder) = 0;
    /// Folders that were not found where the tree has them: moved on, while the note of it was still to be
    /// read.
    virtual std::vector<FolderId> TakeMissed() = 0;
    /// A folder that was met where the tree has `found`, while the tree still had it elsewhere.
    struct Met {
        FolderId folder;
        FolderId found;
    };
    virtual std::vector<Met> TakeMet() = 0;
    /// The folders that are watched since this was asked last.
    virtual std::vector<FolderId> TakeWatched() = 0;
    /// True when the folder holds a file of that name that is older than the folder: it was moved there.
    virtual bool HoldsOlder(FolderId folder, const std::string& name) = 0;
    virtual void Unwatch(int watch) = 0;
    /// What kind of entry has just been created; asked for everything that is no folder.
    virtual Entry Look(FolderId folder, const std::string& name) = 0;
};

class EventFold {
  public:
    /// All must outlive this.  `is_media` tells by its name whether the daemon stores a file.
    EventFold(FolderTree* tree, PendingChanges* pending, FolderPort* port,
              std::function<bool(const std::string&)> is_media);

    void Apply(const FolderEvent& event, int64_t now);

    /// After all notes so far have been applied: entries that left and did not come back under another name
    /// by now are gone, or elsewhere; folders that were missed are looked for where they are now.
    void Settle(int64_t now);

    bool HasOpenMoves() const { return !leaving_.empty(); }

    /// The folder, a top or a mount point, is out of reach: forgets it without taking anything in it for
    /// gone.
    void Lost(FolderId folder);

  private:
    struct Leaving {
        uint32_t cookie;
        FolderId folder;
        std::string name;
        int64_t time;
    };
    void ExpireMoves(int64_t now);
    void WatchMissed(int64_t now);
    void WatchTree(FolderId folder, int64_t now);
    void CloseMove(const FolderEvent& event, const std::string& name, int64_t now);
    void FileLeft(FolderId folder, const std::string& name, int64_t now);
    void FolderAppeared(FolderId parent, const std::string& name, int64_t now);
    void FolderVanished(FolderId folder, int64_t now);
    void EntryCreated(const FolderEvent& event, const std::string& name, int64_t now);
    void EntryVanished(FolderId folder, const std::string& name, int64_t now);
    void EntryLeft(const FolderEvent& event, const std::string& name, int64_t now);
    void EntryArrived(const FolderEvent& event, const std::string& name, int64_t now);
    bool TakeLeaving(uint32_t cookie, Leaving* leaving);
    void FolderArrived(FolderId folder, FolderId parent, const std::string& name, int64_t now);
    void FileArrived(const Leaving& from, FolderId folder, const std::string& name, int64_t now);
    void RemoveFromTree(FolderId folder);

    FolderTree& tree_;
    PendingChanges& pending_;
    FolderPort& port_;
    std::function<bool(const std::string&)> is_media_;
    struct Fresh {
        FolderId folder;
        int64_t time;
    };
    std::vector<Fresh> fresh_;      // folders that began to be watched a moment ago
    std::vector<Leaving> leaving_;  // rarely more than one: the kernel notes both halves in one go
};

}  // namespace koli::watch
