#include "tools/ctl/folder_entries.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "base/folder_way.h"
#include "base/media_info.h"
#include "tools/ctl/media_kinds.h"

namespace koli::ctl {
namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

bool IsSkipped(const char* name) {
    return strcmp(name, ".") == 0 || strcmp(name, "..") == 0 || strcmp(name, "@eaDir") == 0;
}

/// Takes one entry.  The file system is asked only about what may be stored, and about links.
void TakeEntry(int directory, const dirent& entry, const std::string& path, FolderEntries* result) {
    const int type = MediaKindOf(path.c_str());
    bool is_folder = entry.d_type == DT_DIR;
    const bool is_open = entry.d_type == DT_LNK || entry.d_type == DT_UNKNOWN;
    if (!is_folder && !is_open && (entry.d_type != DT_REG || type == kNotIndexed)) return;
    if (!is_folder) {
        struct stat status;
        if (fstatat(directory, entry.d_name, &status, 0) != 0) return;
        is_folder = S_ISDIR(status.st_mode);
        if (S_ISREG(status.st_mode) && type != kNotIndexed)
            result->entries.push_back({entry.d_name, FolderEntry::kFile, FileStateOf(type, status)});
    }
    if (!is_folder) return;
    result->entries.push_back({entry.d_name, FolderEntry::kFolder, {}});
    const bool is_link = IsLink(entry.d_type, path.c_str());
    result->entries.push_back({std::string(entry.d_name) + '/', FolderEntry::kContents, {}, is_link});
}

}  // namespace

FileState FileStateOf(int type, const struct stat& status) {
    return {type, static_cast<int64_t>(status.st_size), status.st_ctime};
}

int FolderEntriesRead(const std::string& folder, FolderEntries* result) {
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return errno;
    const std::unique_ptr<DIR, CloseDirectory> directory(fdopendir(fd));
    if (directory == nullptr) {
        const int error = errno;
        close(fd);
        return error;
    }
    struct stat status;
    if (fstat(fd, &status) != 0) return errno;
    result->device = status.st_dev;
    result->inode = status.st_ino;

    std::string path = folder == "/" ? "/" : folder + '/';
    const size_t length = path.size();
    errno = 0;
    while (const dirent* entry = readdir(directory.get())) {
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) result->is_empty = false;
        path.replace(length, std::string::npos, entry->d_name);
        if (!IsSkipped(entry->d_name) && path.size() < kPathSize) TakeEntry(fd, *entry, path, result);
        errno = 0;
    }
    if (errno != 0) return errno;
    std::sort(result->entries.begin(), result->entries.end(),
              [](const FolderEntry& a, const FolderEntry& b) { return a.name < b.name; });
    return 0;
}

}  // namespace koli::ctl
