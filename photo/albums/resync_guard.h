// What a resync has to have seen before it may delete what it has not seen.
#pragma once

#include <sys/types.h>

#include <ctime>

#include "base/log.h"
#include "photo/albums/folder_listing.h"

namespace koli {

/// Watches over one resync.  Rows of what exists must not go, so the sweep is left to the next resync when
/// something could not be looked at, when something moved while the resync ran (the request that moves its
/// rows is still to come), and when the share is not the one that it was: a volume that has gone leaves the
/// folder that it was mounted on.
class ResyncGuard {
  public:
    /// The resync of `top` (not copied) begins.  Messages are in the name of `site`.
    ResyncGuard(const char* top, LogSite site);

    /// Lists a folder of the resync.  False when it is not there or cannot be listed (logged).
    bool List(const char* path, FolderListing* listing);

    /// The folder has been gone through.
    void Leave(const char* path, const FolderListing& listing);

    /// A directory is there that cannot be looked at (logged).
    void MissFolder(const char* path);
    /// The same of anything else; whoever found out has logged it.
    void Miss() { is_complete_ = false; }

    /// Asked at each entry, keeps no lock for long: true when the photo database takes no more changes.
    bool IsStopped();

    /// Asked when all is done.
    bool MaySweep();

    /// The sweep is done: remembers where.
    void NoteSweep() const;

  private:
    void NoteMove(const char* path);
    bool HasLostVolume() const;

    const char* top_;
    LogSite site_;
    timespec begin_;
    FolderListing::Status top_status_;
    dev_t device_ = 0;  // of the top
    ino_t inode_ = 0;
    bool is_complete_ = true;
    bool has_moved_ = false;
};

}  // namespace koli
