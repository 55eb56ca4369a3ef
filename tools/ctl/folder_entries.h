// The entries of one folder that matter for an index, in the order of their bytes.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace koli::ctl {

/// A file of a kind that is stored.
struct FileState {
    int type = 0;  // StoreType
    int64_t size = 0;
    time_t ctime = 0;
};

FileState FileStateOf(int type, const struct stat& status);

/// A folder gives two entries: NAME stands for itself, NAME/ for what is in it.  So all paths of a tree come
/// in the order of their bytes, in which the databases keep them: "b", "b-c", "b/a".
struct FolderEntry {
    enum Kind { kFile, kFolder, kContents };
    std::string name;
    Kind kind;
    FileState file;         // of kFile
    bool is_link = false;   // of kContents
    bool recorded = false;  // of kContents: set by whoever meets the folder's row
};

struct FolderEntries {
    std::vector<FolderEntry> entries;
    dev_t device = 0;
    ino_t inode = 0;
    bool is_empty = true;  // nothing in it at all, of whatever kind
};

/// Lists `folder`.  Like the daemon's walk it leaves out "@eaDir", follows links, and takes no entry whose
/// path does not fit into 4095 bytes.  Returns 0, or an errno.
int FolderEntriesRead(const std::string& folder, FolderEntries* result);

}  // namespace koli::ctl
