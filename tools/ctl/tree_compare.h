// Compares a tree of folders with what the databases hold of it.
//
// Both sides are gone through once, in the order of the paths' bytes: the tree folder by folder, each sorted,
// the databases' rows as their tables are kept.  Memory follows the largest folder, not the tree.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "tools/ctl/store_reader.h"

namespace koli::ctl {

/// What differs at a path.
enum class Change {
    kNewFile,           // not stored yet
    kChangedFile,       // stored with another size or change time, or missing in the photo library
    kNewFolder,         // neither recorded nor anything stored below it: the whole tree is new
    kUnrecordedFolder,  // something is stored below it, but the folder itself is not recorded
    kGoneFile,          // stored, and not there any more
    kGoneTree,          // the same for a folder: everything at and below it, albums included
    kUnread,            // could not be read, or what goes with it not written, for a reason that may be over
    kNoCover,           // stored with a cover that is missing or empty
    kNoAlbum,           // a folder of the photo share that should be an album and is none
};
inline constexpr size_t kChanges = static_cast<size_t>(Change::kNoAlbum) + 1;

struct CompareOptions {
    bool fold_new_folders = true;  // false: a new folder's files are told one by one, and folders not at all
    bool media_store = true;       // false: of the files only the photo library's count
    bool photo_library = true;     // the photo library's rows count too (when the daemon keeps one)
    bool albums = false;           // the photo share's albums count too
    bool allow_empty = false;      // a missing or empty top means that everything below it is gone
};

struct CompareResult {
    enum Status {
        kCompared,
        kTopEmpty,       // missing or empty while rows are stored below it: perhaps not mounted, nothing told
        kTopUnreadable,  // or missing with nothing stored, or replaced meanwhile; `error` tells why
    };
    Status status = kCompared;
    int error = 0;           // errno of kTopUnreadable
    int64_t files = 0;       // found that the daemon would store; those in folded folders are not counted
    int64_t unreadable = 0;  // folders that could not be listed: their rows are left alone
    int64_t kept = 0;        // rows of what exists but is not indexed; only a request of its own removes them
};

using ChangeHandler = std::function<void(Change change, const std::string& path)>;

/// Compares `top`, an absolute path, and tells each difference.  What has been told must not be used when the
/// status is not kCompared, or when store.error() tells of a database that failed.
CompareResult TreeCompare(const StoreReader& store, const std::string& top, const CompareOptions& options,
                          const ChangeHandler& tell);

}  // namespace koli::ctl
