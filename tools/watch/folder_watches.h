// The watched folders, and what the kernel notes of them: inotify(7).
//
// It needs no privileges, names both halves of a rename and works on every file system of a machine's own;
// fanotify would spare the watch per folder, but tells names only to a privileged process and on some file
// systems only.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/watch/tree_paths.h"

namespace koli::watch {

/// One note about an entry of a watched folder; `mask` and `cookie` as inotify(7) has them.
struct FolderEvent {
    std::string folder;
    uint32_t mask;
    uint32_t cookie;
    std::string_view name;
};

/// True at and in the bin of a share.  Not of a photo share: what comes back from there has its captions and
/// rights.
bool IsUnwatchedBin(const std::string& path);

/// A link to a folder is one, too.
bool IsFolder(const std::string& path);

class FolderWatches {
  public:
    FolderWatches() = default;
    ~FolderWatches() { Close(); }
    FolderWatches(const FolderWatches&) = delete;
    FolderWatches& operator=(const FolderWatches&) = delete;

    /// Begins with no folders.  False, with errno set, when the machine gives no (further) instance.
    bool Open();
    int descriptor() const { return descriptor_; }

    /// A folder that was met at `found` and is known at `known`: it has moved, and the note of that is still
    /// to be read.
    struct Met {
        std::string known, found;
    };
    /// Adds the folder and all folders below it that are not watched yet.  A link is followed only when
    /// `is_top`; else it is known, without a watch: when it goes, what was stored behind it goes.  False when
    /// `path` is known, but cannot be watched, as when it has moved on already.
    bool AddTree(const std::string& path, bool is_top, std::vector<Met>* met);

    /// Takes the folder and all below it along; the watches stay with them.
    void Move(const std::string& to, const std::string& from);
    void Remove(const std::string& path);

    bool IsKnown(const std::string& path) const { return folders_.contains(path); }
    /// The known folders at and below `path`, watched or not, of the first `most` of them.
    std::vector<std::string> Known(const std::string& path, bool is_watched, size_t most = SIZE_MAX) const;
    size_t size() const { return folders_.size(); }

    /// Reads what has been noted so far, one event after another.  False when the kernel had to drop events,
    /// or nothing can be read any more: then what happened is not known.
    bool Read(const std::function<void(const FolderEvent&)>& take);

    /// Why some folder is not watched; each stays set until it is taken back.
    struct Gaps {
        bool limit = false;   // the machine's number of watches is used up
        bool linked = false;  // folders behind links, or mounted in a second place
    };
    Gaps gaps;

  private:
    static constexpr int kNoWatch = -1;

    void Close();
    bool WatchOne(const std::string& path, bool is_top, std::vector<Met>* met);
    void NoteFailure(const std::string& path);
    void AddSubfolders(const std::string& path, std::vector<std::string>* found);
    void Unwatch(const std::string& path);
    bool TakeEvents(const char* at, const char* end, const std::function<void(const FolderEvent&)>& take);

    int descriptor_ = -1;
    std::map<std::string, int> folders_;                    // with their watches
    std::unordered_map<int, const std::string*> by_watch_;  // the keys, which stay where they are in memory
};

}  // namespace koli::watch
