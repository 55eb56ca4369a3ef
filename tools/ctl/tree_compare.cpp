#include "tools/ctl/tree_compare.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <unordered_set>

#include "base/folder_way.h"
#include "index/record/share_path.h"
#include "platform/host/file_times.h"
#include "platform/host/stored_rows.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"
#include "platform/paths.h"
#include "tools/ctl/albums.h"
#include "tools/ctl/folder_entries.h"
#include "tools/ctl/media_kinds.h"

namespace koli::ctl {
namespace {

using namespace host;

/// A time in the two forms in which tables hold it.  Files of one copy share their times.
class TimeTexts {
  public:
    std::string_view Local(time_t when) {
        if (when != local_when_ || local_.empty()) {
            char text[32];
            host::WriteLocalTime(when, text, sizeof text);
            local_ = text;
            local_when_ = when;
        }
        return local_;
    }
    /// The C library's text, its newline included.
    static std::string CLibrary(time_t when) {
        char text[64];
        struct tm local;
        return localtime_r(&when, &local) != nullptr && asctime_r(&local, text) != nullptr ? text : "";
    }

  private:
    time_t local_when_ = 0;
    std::string local_;
};

/// Only a plain "there is no such thing" counts as gone: no right to look, or a disk that fails, is none.
bool Exists(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) == 0) return S_ISDIR(status.st_mode) || S_ISREG(status.st_mode);
    return errno != ENOENT && errno != ENOTDIR;
}

/// The shortest part of `path` that does not exist, longer than its first `known` bytes; "" when all exist.
std::string FirstMissing(std::string_view path, size_t known) {
    for (size_t end = known; end < path.size();) {
        end = std::min(path.find('/', end + 1), path.size());
        std::string part(path.substr(0, end));
        if (!Exists(part)) return part;
    }
    return "";
}

bool IsPassingProblem(const StoredRow& row) {
    return row.type == kRowProblem && (row.size & KOLI_PROBLEM_PASSES) != 0;
}

/// A file has one cover, in one of two forms.  One that cannot be looked at may be there.
bool IsCoverLost(const char* path) {
    for (const char* name : {"cover1.jpg", "cover1.png"}) {
        char cover[kPathSize];
        struct stat status;
        if (KOLIEAPath(path, name, cover, sizeof cover) != 0) return false;
        if (lstat(cover, &status) == 0 ? status.st_size > 0 : errno != ENOENT && errno != ENOTDIR)
            return false;
    }
    return true;
}

class Comparison {
  public:
    /// `top_length` is the length of a part of every path that is known to exist.
    Comparison(StoredRows rows, const Albums& albums, size_t top_length, const CompareOptions& options,
               const ChangeHandler& tell, CompareResult* result)
        : rows_(std::move(rows)),
          albums_(albums),
          top_length_(top_length),
          options_(options),
          tell_(tell),
          result_(*result) {}

    /// Everything below `path`, a folder whose entries have been read.
    void Contents(const std::string& path, const FolderEntry& self, FolderEntries folder,
                  const FolderWay* above);
    void File(const std::string& path, const FileState& file);
    /// What is left is below the top, but was not met.
    void Rest(const std::string& top);

  private:
    void Folder(const std::string& path, std::vector<FolderEntry>& entries, size_t index);
    void SubFolder(const std::string& path, const FolderEntry& self, const FolderWay& way);
    bool IsUnchanged(const StoredRow& row, const FileState& file);
    void DropUpTo(const std::string& key);
    void DropBelow(const std::string& prefix);
    void DropGone();
    void TellGone(const StoredRow& row);
    void TellGoneTree(const std::string& folder);
    bool IsNext(const std::string& path) const {
        return rows_.First() != nullptr && rows_.First()->path == path;
    }
    bool HasBelow(const std::string& prefix) const {
        return rows_.First() != nullptr && rows_.First()->path.starts_with(prefix);
    }

    StoredRows rows_;
    const Albums& albums_;
    const size_t top_length_;
    const CompareOptions& options_;
    const ChangeHandler& tell_;
    CompareResult& result_;
    TimeTexts times_;
    std::unordered_set<std::string> gone_trees_;  // each with '/' behind it
    std::string gone_tree_;                       // the one told last, with '/' behind it
    std::string gone_file_;                       // the file told last
};

// ---- Rows without a file

void Comparison::DropUpTo(const std::string& key) {
    while (rows_.First() != nullptr && rows_.First()->path < key)
        DropGone();
}

void Comparison::DropBelow(const std::string& prefix) {
    DropUpTo(prefix);
    while (HasBelow(prefix))
        rows_.Drop();
}

/// Drops a row that nothing was met for.
void Comparison::DropGone() {
    const StoredRow& row = *rows_.First();
    const bool is_told = (!gone_tree_.empty() && row.path.starts_with(gone_tree_)) || row.path == gone_file_;
    if (!is_told) TellGone(row);
    rows_.Drop();
}

/// Tells what is gone with the row: its file, or the highest folder above it.
void Comparison::TellGone(const StoredRow& row) {
    const std::string missing = FirstMissing(row.path, top_length_);
    if (missing.empty()) {
        result_.kept += row.type != kRowProblem ? 1 : 0;
        return;
    }
    if (missing == row.path) gone_file_ = missing;
    // The removal of a file looks only into the table of its kind.
    const int kind = MediaKindOf(missing.c_str());
    const bool is_file = missing == row.path && (row.type == kRowLibrary || row.type == kind ||
                                                 (row.type == kRowProblem && kind != kNotIndexed));
    if (is_file) {
        tell_(Change::kGoneFile, missing);
    } else {
        TellGoneTree(missing);
    }
}

void Comparison::TellGoneTree(const std::string& folder) {
    gone_tree_ = folder + '/';
    if (gone_trees_.insert(gone_tree_).second) tell_(Change::kGoneTree, folder);
}

void Comparison::Rest(const std::string& top) {
    while (rows_.First() != nullptr)
        DropGone();
    for (const std::string& album : albums_.FoldersBelow(top))
        if (const std::string missing = FirstMissing(album, top_length_); !missing.empty())
            TellGoneTree(missing);
}

// ---- What is there

bool Comparison::IsUnchanged(const StoredRow& row, const FileState& file) {
    if (row.size != file.size) return false;
    if (row.type == kStorePlaylist || row.type == kRowLibrary)
        return row.ctime == TimeTexts::CLibrary(file.ctime);
    return row.ctime == times_.Local(file.ctime);
}

void Comparison::File(const std::string& path, const FileState& file) {
    DropUpTo(path);
    const bool wants_library = options_.photo_library && IsLibraryPhoto(path.c_str(), file.size);
    result_.files += options_.media_store || wants_library ? 1 : 0;
    bool is_stored = !options_.media_store, is_in_library = !wants_library, is_changed = false;
    bool is_unread = false, has_cover = false;
    for (; IsNext(path); rows_.Drop()) {
        const StoredRow& row = *rows_.First();
        is_unread |= IsPassingProblem(row);
        if (row.type == file.type && options_.media_store)
            is_stored = true;
        else if (row.type == kRowLibrary && wants_library)
            is_in_library = true;
        else
            continue;  // a row that adding the file does not touch
        is_changed |= !IsUnchanged(row, file);
        has_cover |= row.has_cover;
    }
    if (!is_stored)
        tell_(Change::kNewFile, path);
    else if (is_changed || !is_in_library)
        tell_(Change::kChangedFile, path);
    else if (is_unread)
        tell_(Change::kUnread, path);
    else if (has_cover && IsCoverLost(path.c_str()))
        tell_(Change::kNoCover, path);
}

void Comparison::Folder(const std::string& path, std::vector<FolderEntry>& entries, size_t index) {
    DropUpTo(path);
    for (; IsNext(path); rows_.Drop()) {
        if (IsPassingProblem(*rows_.First())) tell_(Change::kUnread, path);
        if (rows_.First()->type != kRowFolder) continue;
        // The entry of its contents follows, behind names like "b-c".
        const std::string contents = entries[index].name + '/';
        size_t at = index + 1;
        while (at < entries.size() && entries[at].name != contents)
            ++at;
        if (at < entries.size()) entries[at].recorded = true;
    }
}

void Comparison::Contents(const std::string& path, const FolderEntry& self, FolderEntries folder,
                          const FolderWay* above) {
    const std::string prefix = FirstKeyBelow(path);
    DropUpTo(prefix);
    if (!self.recorded && !HasBelow(prefix) && options_.fold_new_folders) {
        tell_(Change::kNewFolder, path);
        return;
    }
    if (!self.recorded && options_.fold_new_folders)
        tell_(Change::kUnrecordedFolder, path);
    else if (albums_.IsMissing(path))
        tell_(Change::kNoAlbum, path);

    const FolderWay way = FolderWayTo(above, folder.device, folder.inode, self.is_link);
    for (size_t i = 0; i < folder.entries.size(); ++i) {
        const FolderEntry& entry = folder.entries[i];
        std::string entry_path = prefix + entry.name;
        if (entry.kind == FolderEntry::kFile) {
            File(entry_path, entry.file);
        } else if (entry.kind == FolderEntry::kFolder) {
            Folder(entry_path, folder.entries, i);
        } else {
            entry_path.pop_back();
            SubFolder(entry_path, entry, way);
        }
    }
}

/// Like the daemon's walk: what it does not enter is not indexed.  Which of the deep links it follows is its
/// own choice; those that it has followed are recorded.
void Comparison::SubFolder(const std::string& path, const FolderEntry& self, const FolderWay& way) {
    if (self.is_link && !LinkLimit::IsFree(way) && !self.recorded) return;
    if (IsRecycleBinPath(path.c_str()) != 0) return;
    FolderEntries folder;
    if (FolderEntriesRead(path, &folder) != 0) {
        ++result_.unreadable;
        DropBelow(path + '/');
        return;
    }
    if (!IsOnTheWay(&way, folder.device, folder.inode)) Contents(path, self, std::move(folder), &way);
}

/// A top that is a file.
void CompareFile(const StoreReader& store, const std::string& top, const CompareOptions& options,
                 const ChangeHandler& tell, CompareResult* result) {
    struct stat status;
    const int type = MediaKindOf(top.c_str());
    if (type == kNotIndexed || stat(top.c_str(), &status) != 0) return;
    StoredRows rows(store, top, top + '\0', options.photo_library);
    const Albums none;
    Comparison(std::move(rows), none, top.size(), options, tell, result).File(top, FileStateOf(type, status));
}

void CompareFolder(const StoreReader& store, const Albums& albums, const std::string& top,
                   FolderEntries folder, const CompareOptions& options, const ChangeHandler& tell,
                   CompareResult* result) {
    if (IsRecycleBinPath(top.c_str()) != 0) return;
    StoredRows rows(store, FirstKeyBelow(top), KeyBehind(top), options.photo_library);
    const dev_t device = folder.device;
    const ino_t inode = folder.inode;
    Comparison comparison(std::move(rows), albums, top == "/" ? 0 : top.size(), options, tell, result);
    const FolderEntry self{top, FolderEntry::kContents, {}, false, store.IsRecordedFolder(top)};
    comparison.Contents(top, self, std::move(folder), nullptr);
    comparison.Rest(top);

    // A share that was unmounted meanwhile has made everything look gone.
    struct stat status;
    if (stat(top.c_str(), &status) == 0 && status.st_dev == device && status.st_ino == inode) return;
    result->status = CompareResult::kTopUnreadable;
    result->error = ESTALE;
}

/// A share that has lost everything at once is more often not mounted than emptied.
bool LooksUnmounted(const StoreReader& store, const Albums& albums, const std::string& top, bool is_missing) {
    return store.HasRowsBelow(top) || !albums.FoldersBelow(top).empty() ||
           (is_missing && (store.IsRecordedFolder(top) || store.FilesBelow(top) > 0));
}

bool KeepsPhotoLibrary() {
    return BlKOLIFileCheckKeyValue(paths::kDefaults, "supportphoto", "yes", 0) != 0;
}

}  // namespace

CompareResult TreeCompare(const StoreReader& store, const std::string& top, const CompareOptions& wanted,
                          const ChangeHandler& tell) {
    CompareResult result;
    CompareOptions options = wanted;
    options.photo_library &= KeepsPhotoLibrary();
    const Albums albums = options.albums && options.photo_library ? Albums(store) : Albums();
    FolderEntries folder;
    const int error = FolderEntriesRead(top, &folder);
    if (error == ENOTDIR && IsFileExist(top.c_str(), nullptr) != 0) {
        CompareFile(store, top, options, tell, &result);
        return result;
    }
    const bool is_missing = error == ENOENT || error == ENOTDIR;
    const bool is_doubtful =
        (is_missing || folder.is_empty) && LooksUnmounted(store, albums, top, is_missing);
    if (is_doubtful && !options.allow_empty) {
        result.status = CompareResult::kTopEmpty;
    } else if (is_doubtful && is_missing) {
        tell(Change::kGoneTree, top);
    } else if (error != 0) {
        result.status = CompareResult::kTopUnreadable;
        result.error = error;
    } else {
        CompareFolder(store, albums, top, std::move(folder), options, tell, &result);
    }
    return result;
}

}  // namespace koli::ctl
