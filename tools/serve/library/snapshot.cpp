#include "tools/serve/library/snapshot.h"

#include <algorithm>
#include <tuple>

#include "base/formats.h"
#include "platform/koliindex.h"

namespace koli::serve {

std::string_view TitleOf(const FilesOfKind& files, uint32_t file) {
    const File& row = files.files[file];
    std::string_view title = files.names.Entry(row.name);
    title.remove_prefix(std::min<size_t>(row.title_at, title.size()));
    return title.substr(0, title.find('\n'));
}

bool IsFilm(const FilesOfKind& films, uint32_t number) {
    static constexpr std::string_view kBesideFilms[] = {"ifo", "srt", "ass", "ssa",
                                                        "idx", "sub", "smi", "psb"};
    const Format* const format =
        FormatFind(KOLIIndexExtGet(films.names.Text(films.files[number].name).c_str()));
    return format == nullptr || std::ranges::find(kBesideFilms, format->extension) == std::end(kBesideFilms);
}

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

void Snapshot::SortSongs(Numbers* songs, Span span) const {
    const FilesOfKind& files = Of(FileKind::kSong);
    // What has no number stands behind what has one.
    const auto disc_of = [](const File& file) { return static_cast<uint8_t>(file.disc - 1); };
    const auto track_of = [](const File& file) { return static_cast<uint16_t>(file.track - 1); };
    const auto is_before = [&](uint32_t a, uint32_t b) {
        const File &one = files.files[a], &other = files.files[b];
        if (one.group == other.group)
            return std::tuple(disc_of(one), track_of(one), a) <
                   std::tuple(disc_of(other), track_of(other), b);
        const auto place = [&](const File& file, uint32_t song) {
            const Group& group = files.groups[file.group];
            return std::tuple(ranks[group.album], group.record, disc_of(file), group.folder, track_of(file),
                              song);
        };
        return place(one, a) < place(other, b);
    };
    if (span.count == 0 || span.from >= songs->size()) return;
    const auto first = songs->begin() + static_cast<std::ptrdiff_t>(span.from);
    const size_t count = std::min(span.count, songs->size() - span.from);
    if (count == songs->size()) return std::sort(songs->begin(), songs->end(), is_before);
    std::nth_element(songs->begin(), first, songs->end(), is_before);
    std::partial_sort(first, first + static_cast<std::ptrdiff_t>(count), songs->end(), is_before);
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
