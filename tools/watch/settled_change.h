// What the watcher asks for once a change has settled.
#pragma once

#include <cstddef>
#include <string>

namespace koli::watch {

struct SettledChange {
    enum Kind {
        kAddFile,
        kAddTree,   // a folder that is new as a whole
        kAddBurst,  // a folder in which more files changed than are told one by one
        kRemoveFile,
        kRemoveTree,
        kMoveFile,
        kMoveTree,
        kDropFile,    // moved, and gone since
        kStay,        // moved, and out of reach since
        kAddAlbum,    // a new folder into which something moves that is stored
        kCompareTree  // what happened there is not known in detail
    };
    Kind kind;
    std::string path;           // absolute; of a removal, where it is stored
    std::string old_path = {};  // of a move: where it is stored
    size_t files = 0;           // of a burst: at least so many have changed
    int inside = -1;  // of moves that are told together: which of them was a folder around it, when this one
                      // left that, or -1
};

/// True for `folder` itself and everything inside it.
inline bool IsAtOrBelowPath(const std::string& path, const std::string& folder) {
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

/// `path`, which is at or below `from`, after `from` has become `to`.
inline std::string MovedPath(const std::string& path, const std::string& from, const std::string& to) {
    return to + path.substr(from.size());
}

}  // namespace koli::watch
