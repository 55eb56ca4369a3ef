#include "tools/serve/library/snapshot.h"

#include <algorithm>
#include <tuple>

namespace koli::serve {

std::string Snapshot::PathOf(FileKind kind, uint32_t file) const {
    const FilesOfKind& files = Of(kind);
    const File& row = files.files[file];
    return texts.Text(files.groups[row.group].folder) + "/" + files.names.Text(row.name);
}

size_t Snapshot::FolderAt(std::string_view path) const {
    const auto at = std::lower_bound(
        folders.begin(), folders.end(), path,
        [this](uint32_t folder, std::string_view wanted) { return texts.Text(folder) < wanted; });
    return static_cast<size_t>(at - folders.begin());
}

uint32_t Snapshot::FolderOf(std::string_view path) const {
    const size_t at = FolderAt(path);
    return at < folders.size() && texts.Text(folders[at]) == path ? folders[at] : 0;
}

Numbers Snapshot::FilesWhere(FileKind kind, const std::function<bool(const Group&)>& is_wanted) const {
    const FilesOfKind& files = Of(kind);
    Numbers found;
    for (size_t group = 0; group < files.groups.size(); ++group) {
        if (!is_wanted(files.groups[group])) continue;
        for (uint32_t file = files.First(group); file < files.Behind(group); ++file)
            found.push_back(file);
    }
    return found;
}

void Snapshot::SortSongs(Numbers* songs) const {
    const FilesOfKind& files = Of(FileKind::kSong);
    const auto place = [&](uint32_t song) {
        const File& file = files.files[song];
        const Group& group = files.groups[file.group];
        return std::tuple(ranks[group.album], group.record, file.disc, group.folder, file.track, song);
    };
    std::sort(songs->begin(), songs->end(), [&](uint32_t a, uint32_t b) { return place(a) < place(b); });
}

size_t Snapshot::RecordOf(const AlbumKey& key) const {
    std::string folded;
    FoldLineTo(key.title, &folded);
    for (size_t record = 0; record < records.size(); ++record) {
        const Record& candidate = records[record];
        if (texts.Folded(candidate.title) == folded && texts.Text(candidate.title) == key.title &&
            texts.Text(candidate.artist) == key.artist)
            return record;
    }
    return records.size();
}

}  // namespace koli::serve
