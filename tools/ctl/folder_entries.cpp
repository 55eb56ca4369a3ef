#include "tools/ctl/folder_entries.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "base/directory_listing.h"
#include "base/folder_way.h"
#include "base/known_path.h"
#include "base/media_info.h"
#include "tools/ctl/media_kinds.h"

namespace koli::ctl {
namespace {

/// Takes one entry.  The file system is asked only about what may be stored, and about links.
void TakeEntry(const DirectoryListing::Entry& entry, int folder, const std::string& path,
               FolderEntries* result) {
    const int type = MediaKindOf(path.c_str());
    if (entry.type == DT_REG) {
        // By far the most entries: what leads to the folder is not gone through for each of them.
        struct stat status;
        if (type != kNotIndexed && fstatat(folder, entry.name, &status, 0) == 0 && S_ISREG(status.st_mode))
            result->entries.push_back({entry.name, FolderEntry::kFile, FileStateOf(type, status)});
        return;
    }
    const KnownPath known(path.c_str(), entry.type);
    const PathKind kind = known.kind();
    if (kind == PathKind::kFile && type != kNotIndexed && known.file() != nullptr)
        result->entries.push_back({entry.name, FolderEntry::kFile, FileStateOf(type, *known.file())});
    if (kind != PathKind::kDirectory) return;
    result->entries.push_back({entry.name, FolderEntry::kFolder, {}});
    const bool is_link = IsLink(entry.type, path.c_str());
    result->entries.push_back({std::string(entry.name) + '/', FolderEntry::kContents, {}, is_link});
}

}  // namespace

FileState FileStateOf(int type, const struct stat& status) {
    return {type, static_cast<int64_t>(status.st_size), status.st_ctime};
}

int FolderEntriesRead(const std::string& folder, FolderEntries* result) {
    DirectoryListing listing;
    if (!listing.Open(folder.c_str())) return errno;
    result->device = listing.device();
    result->inode = listing.inode();

    std::string path = folder == "/" ? "/" : folder + '/';
    const size_t length = path.size();
    bool has_entries = false;
    for (auto entry = listing.Next(); entry.name != nullptr; entry = listing.Next()) {
        has_entries = true;
        path.replace(length, std::string::npos, entry.name);
        if (path.size() < kPathSize) TakeEntry(entry, listing.descriptor(), path, result);
    }
    if (has_entries || listing.has_metadata()) result->is_empty = false;
    if (listing.error() != 0) return listing.error();
    std::sort(result->entries.begin(), result->entries.end(),
              [](const FolderEntry& a, const FolderEntry& b) { return a.name < b.name; });
    return 0;
}

}  // namespace koli::ctl
