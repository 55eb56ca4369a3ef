#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "base/log.h"
#include "base/path_buffer.h"
#include "index/both_stores.h"
#include "index/record/index_mode.h"
#include "photo/albums/folder_listing.h"
#include "photo/albums/photo_resync.h"
#include "photo/albums/sql_text.h"
#include "photo/photo_library.h"
#include "platform/kolidb.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_index";

constexpr int kNodeSize = 8;  // bytes of a list's node on the appliance, for the log

/// The paths that the databases hold for one directory, sorted for the search.
class KnownPaths {
  public:
    KnownPaths(KOLIDBRows* videos, KOLIDBRows* photos)
        : video_list_(videos != nullptr ? PhotoPathDBGet(videos) : nullptr),
          photo_list_(PhotoPathDBGet(photos)) {}

    /// False when memory ran out.
    bool Sort() {
        const size_t most = Length(video_list_.get()) + Length(photo_list_.get());
        sorted_.reset(new (std::nothrow) const char*[most + 1]);
        if (sorted_ == nullptr) return false;
        Take(video_list_.get());
        Take(photo_list_.get());
        std::sort(sorted_.get(), sorted_.get() + count_, IsBefore);
        return true;
    }

    bool Holds(const char* path) const {
        return std::binary_search(sorted_.get(), sorted_.get() + count_, path, IsBefore);
    }

  private:
    static bool IsBefore(const char* left, const char* right) { return strcmp(left, right) < 0; }

    static size_t Length(const PhotoPathList* list) {
        size_t length = 0;
        for (; list != nullptr; list = list->next)
            ++length;
        return length;
    }

    void Take(const PhotoPathList* list) {
        for (; list != nullptr; list = list->next)
            sorted_[count_++] = list->path;
    }

    const PathList video_list_;
    const PathList photo_list_;
    std::unique_ptr<const char*[]> sorted_;  // into the lists
    size_t count_ = 0;
};

/// Puts a copy of the path at the head of the list.
int Prepend(const char* path, PathList* list) {
    PathList node(static_cast<PhotoPathList*>(calloc(1, sizeof(PhotoPathList))));
    if (node == nullptr) {
        KOLI_LOG("Failed to alloc %d", kNodeSize);
        return -1;
    }
    node->path = strdup(path);
    if (node->path == nullptr) {
        KOLI_LOG("Failed to duplicate string.");
        return -1;
    }
    node->next = list->release();
    *list = std::move(node);
    return 0;
}

/// What is in the directory, newest first: found in a database already, and not.
struct Found {
    PathList seen;
    PathList added;
};

int Divide(const char* directory, const FolderListing& names, const KnownPaths& known, Found* found) {
    PathBuffer path(directory);
    const size_t length = path.length();
    for (const FolderListing::Entry& entry : names) {
        if (!HasDot(entry) || !path.Append(entry.name.c_str())) continue;
        const int result = Prepend(path.text(), known.Holds(path.text()) ? &found->seen : &found->added);
        path.CutTo(length);
        if (result != 0) return -1;
    }
    return 0;
}

/// The rows directly inside the directory decide what is known.
int DivideByRows(const char* directory, const FolderListing& names, Found* found) {
    constexpr const char kOrder[] = "path asc";
    const SqlText like = LikeText(directory, LogSite(kModule));
    if (like == nullptr) return -1;
    const SqlText where =
        FormatSql(LogSite(kModule), "path like '%s/%%' and path not like '%s/%%/%%'", like.get(), like.get());
    if (where == nullptr) return -1;
    const SqlRows photos(PhotoInfoDBOpen(KOLI_PHOTO_INFO, "path", where.get(), 0, kOrder, 0, 0));
    if (photos == nullptr) {
        KOLI_LOG("Error occurred, failed to get records.");
        return -1;
    }
    const SqlRows videos(MediaInfoDBOpen(kStoreVideo, "path", where.get(), 0, kOrder, 0, 0, 0));
    KnownPaths known(videos.get(), photos.get());
    if (!known.Sort()) {
        KOLI_LOG("Failed to alloc %d", kNodeSize);
        return -1;
    }
    return Divide(directory, names, known, found);
}

bool IsStopped() {
    KOLIDBTick();
    return (KOLIDBRefusing() & KOLI_PHOTO_DB) != 0;
}

/// False when the row of a known file may have to stay, although it was not refreshed.
bool Index(const Found& found) {
    bool is_seen = true;
    for (const PhotoPathList* node = found.seen.get(); node != nullptr; node = node->next) {
        if (IsStopped()) return false;
        PhotoOutcome outcome;
        PhotoLibraryIndex(node->path, kModeUpdate, &outcome);
        if (outcome == PhotoOutcome::kGone || outcome == PhotoOutcome::kMissed) is_seen = false;
    }
    for (const PhotoPathList* node = found.added.get(); node != nullptr; node = node->next) {
        if (IsStopped()) return false;
        IndexInStores(node->path, kModeAdd, kWalkMediaStore | kWalkPhotoLibrary);
    }
    return is_seen;
}

}  // namespace

int PhotoFolderSync(const char* directory, const FolderListing* names, bool* is_seen) {
    *is_seen = false;
    if (directory == nullptr || *directory == '\0' || names == nullptr ||
        std::none_of(names->begin(), names->end(), HasDot)) {
        KOLI_LOG("Bad parameter. ");
        return -1;
    }
    Found found;
    if (DivideByRows(directory, *names, &found) != 0) return -1;
    *is_seen = Index(found);
    return 0;
}

int PhotoFolderSync(const char* directory, const FolderListing* names) {
    bool is_seen = false;
    return PhotoFolderSync(directory, names, &is_seen);
}

}  // namespace koli
