#include "photo/albums/photo_resync.h"

#include <algorithm>
#include <cstring>

#include "base/folder_way.h"
#include "base/foothold.h"
#include "base/log.h"
#include "base/metadata_folder.h"
#include "base/path_buffer.h"
#include "index/record/share_path.h"
#include "photo/albums/folder_listing.h"
#include "photo/albums/resync_guard.h"
#include "photo/albums/sql_text.h"
#include "platform/kolidb.h"
#include "platform/kolisdk.h"
#include "platform/paths.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_index";

/// Whether the last resync of the whole share has come to its sweep; true before the first.  The resync of
/// the albums, which is a call of its own behind it, depends on this.
bool has_seen_all = true;

/// One resync.  Absolute paths alone are used, and one buffer for all of them: the working directory stays
/// what it is, and a level costs little stack.  Footholds keep the looks at the deepest levels short.
class TreeResync {
  public:
    TreeResync(const char* directory, ResyncGuard* guard) : path_(directory), guard_(*guard) {}

    void Run() { Visit(nullptr, false); }

  private:
    void Visit(const FolderWay* above, bool is_link);
    void VisitFolders(const FolderListing& listing, const FolderWay& way);
    void VisitEntry(const FolderListing::Entry& entry, const FolderWay& way);

    PathBuffer path_;
    ResyncGuard& guard_;
    LinkLimit links_;
};

void TreeResync::Visit(const FolderWay* above, bool is_link) {
    if (IsRecycleBinPath(path_.text()) != 0) return;
    FolderListing listing;
    if (!guard_.List(path_.text(), &listing)) return;
    if (IsOnTheWay(above, listing.device(), listing.inode())) return;

    const Foothold foothold(path_.text());
    if (std::any_of(listing.begin(), listing.end(), HasDot)) {
        bool is_seen = false;
        if (PhotoFolderSync(path_.text(), &listing, &is_seen) != 0 || !is_seen) guard_.Miss();
    }
    VisitFolders(listing, FolderWayTo(above, listing.device(), listing.inode(), is_link));
    guard_.Leave(path_.text(), listing);
}

void TreeResync::VisitFolders(const FolderListing& listing, const FolderWay& way) {
    const size_t length = path_.length();
    for (const FolderListing::Entry& entry : listing) {
        if (guard_.IsStopped()) return;
        const char* const name = entry.name.c_str();
        if (MentionsMetadataFolder(name) || !path_.Append(name)) continue;
        VisitEntry(entry, way);
        path_.CutTo(length);
    }
}

void TreeResync::VisitEntry(const FolderListing::Entry& entry, const FolderWay& way) {
    const PathKind kind = EntryAt(entry, path_.text()).kind();
    if (kind == PathKind::kUnknown) guard_.MissFolder(path_.text());
    if (kind != PathKind::kDirectory) return;
    const bool is_link = IsLink(entry.type, path_.text());
    if (!is_link || links_.MayFollow(way, path_.text(), LogSite(kModule))) Visit(&way, is_link);
}

bool TargetGet(char (&target)[kPathSize]) {
    if (ShareTargetGet(paths::kPhotoShare, target)) return true;
    KOLI_LOG("Failed to read link of %s", paths::kPhotoShare);
    return false;
}

int MarkAllStale() {
    if (KOLIPhotoInitAllRows() != -1) return 0;
    KOLI_LOG("Failed to set updated to 0 for all rows.");
    return -1;
}

bool IsLinkTarget(const char* directory) {
    char target[kPathSize];
    return ShareTargetGet(paths::kPhotoShare, target) && strcmp(directory, target) == 0;
}

/// The resync does not go into the share's "#recycle".  Rows that a rename has taken there stay as long as
/// their pictures: what comes back has its captions.
void RefreshRecycleBin(const char* top, ResyncGuard* guard) {
    PathBuffer bin(top);
    if (!bin.Append(kRecycleFolder) || KLIBPathLook(bin.text()) == KLIB_PATH_ABSENT) return;
    const SqlText like = LikeText(bin.text(), LogSite(kModule));
    const SqlText where =
        like != nullptr ? FormatSql(LogSite(kModule), "path like '%s/%%'", like.get()) : nullptr;
    const SqlRows rows(
        where != nullptr ? PhotoInfoDBOpen(KOLI_PHOTO_INFO, "path", where.get(), 0, nullptr, 0, 0) : nullptr);
    if (rows == nullptr) return guard->Miss();
    while (KOLIDBFetchRow(rows->result, &rows->row) == 0 && !guard->IsStopped()) {
        const char* path = KOLIDBFetchField(rows->result, rows->row, "path");
        if (path == nullptr || KLIBPathLook(path) == KLIB_PATH_ABSENT) continue;
        const SqlText name = QuoteText(path, LogSite(kModule));
        const SqlText sql =
            name != nullptr ? FormatSql(LogSite(kModule),
                                        "Update photo_info set updated = '1' where path = '%s'", name.get())
                            : nullptr;
        if (sql == nullptr || PhotoDBExec(sql.get()) == -1) guard->Miss();
    }
}

/// The top call's end.  A row whose mark was lost or refused has its photo still.
int Sweep(const char* top, ResyncGuard* guard) {
    RefreshRecycleBin(top, guard);
    if (!guard->MaySweep()) return 0;
    if (PhotoDBHarden() != 0 || KOLIPhotoDeleteNoUpdateRows() == -1) {
        KOLI_LOG("Failed to delete none updated rows.");
        return -1;
    }
    guard->NoteSweep();
    has_seen_all = true;
    return 0;
}

}  // namespace

bool PhotoFolderResyncSawAll() {
    return has_seen_all;
}

int PhotoFolderResync(const char* directory) {
    char target[kPathSize];
    const bool is_whole_share = directory == nullptr;
    if (is_whole_share) has_seen_all = false;
    if (is_whole_share && !TargetGet(target)) return -1;
    const char* top = is_whole_share ? target : directory;
    ResyncGuard guard(top, LogSite(kModule));
    if (is_whole_share && MarkAllStale() != 0) return -1;
    if (IsRecycleBinPath(top) != 0) return 0;

    TreeResync(top, &guard).Run();
    return is_whole_share || IsLinkTarget(top) ? Sweep(top, &guard) : 0;
}

}  // namespace koli
