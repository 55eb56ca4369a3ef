// Where a walk through a tree of folders stands.  Links to folders are followed, so a tree can contain
// itself.
#pragma once

#include <sys/types.h>

#include "base/log.h"

namespace koli {

/// A folder on the way from the top of a walk to the current one; lives on the stack of the walk.
struct FolderWay {
    dev_t device;
    ino_t inode;
    const FolderWay* above;  // null at the top
    int links;               // of the folders on the way, this one included: how many were reached by a link
};

/// The way to a folder that is entered from `above`, which is null for the top.
inline FolderWay FolderWayTo(const FolderWay* above, dev_t device, ino_t inode, bool is_link) {
    return {device, inode, above, (above != nullptr ? above->links : 0) + (is_link ? 1 : 0)};
}

/// True when the folder is on the way already: a link that points upwards has been followed.
bool IsOnTheWay(const FolderWay* way, dev_t device, ino_t inode);

/// Whether an entry of a folder is a symbolic link: `type` is its d_type.  Only where that does not tell the
/// file system is asked for `path`.
bool IsLink(unsigned char type, const char* path);

/// How far one walk follows links.  A dozen folders that hold links to each other can be gone through in more
/// than 10^9 orders; people have no use for more than a link in what a link shows.  So those two are always
/// followed, and what lies deeper is met in a bounded number of ways.
class LinkLimit {
  public:
    /// Whether the walk may enter a folder, `path`, that it reaches from `way` by a link.  The first one that
    /// it may not is logged in the name of `site`.
    bool MayFollow(const FolderWay& way, const char* path, LogSite site);

    /// Whether every walk enters such a folder.
    static bool IsFree(const FolderWay& way) { return way.links < kFreeLinks; }

  private:
    static constexpr int kFreeLinks = 2;
    static constexpr int kDeepLinksMax = 10000;

    int followed_ = 0;  // deep ones
    bool has_left_out_ = false;
};

}  // namespace koli
