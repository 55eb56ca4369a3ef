// The kernel's file notification: inotify(7).
//
// It needs no privileges, names both halves of a rename and works on every file system of a machine's own;
// fanotify would spare the watch per folder, but tells names only to a privileged process and on some file
// systems only.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tools/watch/event_fold.h"

namespace koli::watch {

class InotifyPort : public FolderPort {
  public:
    /// `tree` must outlive this.
    explicit InotifyPort(FolderTree* tree) : tree_(*tree) {}
    ~InotifyPort() override { Close(); }
    InotifyPort(const InotifyPort&) = delete;
    InotifyPort& operator=(const InotifyPort&) = delete;

    /// False, with errno set, when the machine gives no (further) instance.
    bool Open();
    void Close();
    int descriptor() const { return descriptor_; }

    void WatchTree(FolderId folder) override;
    void Unwatch(int watch) override;
    std::vector<FolderId> TakeMissed() override;
    std::vector<Met> TakeMet() override;
    std::vector<FolderId> TakeWatched() override;
    bool HoldsOlder(FolderId folder, const std::string& name) override;
    Entry Look(FolderId folder, const std::string& name) override;

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
    bool TakeEvents(const char* at, const char* end, const std::function<void(const FolderEvent&)>& take);
    bool WatchOne(FolderId folder, const std::string& path);
    void TellFailure(FolderId folder, const std::string& path);
    void AddSubfolders(FolderId folder, const std::string& path, std::vector<FolderId>* found);

    FolderTree& tree_;
    int descriptor_ = -1;
    std::vector<FolderId> missed_;
    std::vector<Met> met_;
    std::vector<FolderId> watched_;
};

}  // namespace koli::watch
