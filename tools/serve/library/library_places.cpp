// One file among the others: what stands beside it, what it belongs to, what keeps it from being as it is.
#include <algorithm>
#include <filesystem>

#include "platform/kolisdk.h"
#include "tools/ctl/store_reasons.h"
#include "tools/ctl/waiting_reasons.h"
#include "tools/serve/library/library_impl.h"

namespace koli::serve {
namespace {

/// The number of the file at `path`; false without one.
bool NumberOf(const Snapshot& snapshot, FileKind kind, const std::string& path, uint32_t* file) {
    *file = FirstFileFrom(snapshot, kind, path);
    return *file < snapshot.Of(kind).files.size() && snapshot.PathOf(kind, *file) == path;
}

/// The list that a file stands in.
Numbers ListAround(const Snapshot& snapshot, FileKind kind, uint32_t file, ListOf list) {
    const FilesOfKind& files = snapshot.Of(kind);
    const File& row = files.files[file];
    const Group& group = files.groups[row.group];
    if (list == ListOf::kMonth) return PicturesOfMonthAt(snapshot, MonthOf(row.moment));
    if (kind != FileKind::kSong) {
        Numbers beside =
            snapshot.FilesWhere(kind, [&group](const Group& other) { return other.folder == group.folder; });
        if (kind == FileKind::kFilm)
            std::erase_if(beside, [&files](uint32_t other) { return !IsFilm(files, other); });
        return beside;
    }
    // Songs that name no album may be all there are.
    Numbers songs = snapshot.FilesWhere(kind, [&group](const Group& other) {
        return other.record == group.record && (group.album != 0 || other.folder == group.folder);
    });
    snapshot.SortSongs(&songs);
    return songs;
}

}  // namespace

uint32_t FirstFileFrom(const Snapshot& snapshot, FileKind kind, const std::string& path) {
    uint32_t at = 0;
    for (auto behind = static_cast<uint32_t>(snapshot.Of(kind).files.size()); at < behind;) {
        const uint32_t middle = at + (behind - at) / 2;
        if (snapshot.compare(snapshot.PathOf(kind, middle), path) < 0)
            at = middle + 1;
        else
            behind = middle;
    }
    return at;
}

Neighbours Library::Beside(FileKind kind, const std::string& path, ListOf list) const {
    const auto snapshot = impl_->Now();
    uint32_t file = 0;
    if (!NumberOf(*snapshot, kind, path, &file)) return {};
    const Numbers all = ListAround(*snapshot, kind, file, list);
    const auto here = std::find(all.begin(), all.end(), file);
    if (here == all.end()) return {};
    Neighbours near{.at = static_cast<size_t>(here - all.begin()), .total = all.size()};
    if (here != all.begin()) near.before = snapshot->PathOf(kind, *(here - 1));
    if (here + 1 != all.end()) near.behind = snapshot->PathOf(kind, *(here + 1));
    return near;
}

bool Library::AlbumOfSong(const std::string& path, AlbumKey* key) const {
    const auto snapshot = impl_->Now();
    uint32_t song = 0;
    if (!NumberOf(*snapshot, FileKind::kSong, path, &song)) return false;
    const FilesOfKind& songs = snapshot->Of(FileKind::kSong);
    const Record& record = snapshot->records[songs.groups[songs.files[song].group].record];
    *key = {snapshot->texts.Text(record.artist), snapshot->texts.Text(record.title)};
    return true;
}

ctl::Reasons Library::WhyNotInStep(const std::string& path) const {
    PageRows rows(impl_->places());
    if (!rows.is_open()) return {};
    const ctl::StoredAs stored = ctl::StoredAsOf(rows.store(), path);
    if (stored.is_in_step) return {};
    ctl::Reasons reasons = ctl::WaitingReasons(impl_->places(), path);
    reasons.insert(reasons.end(), stored.reasons.begin(), stored.reasons.end());
    return reasons;
}

bool Library::IsAway(const std::string& folder) {
    if (KLIBPathLook(folder.c_str()) == KLIB_PATH_ABSENT) return true;
    // No look at the folder itself, which fails on machines of 32 bits when it is dated after 2038.
    namespace fs = std::filesystem;
    std::error_code unknown;
    return fs::directory_iterator(folder, unknown) == fs::directory_iterator() && !unknown;
}

}  // namespace koli::serve
