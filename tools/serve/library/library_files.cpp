// Films, playlists, folders and single files.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "platform/host/path_range.h"
#include "tools/ctl/entry.h"
#include "tools/serve/library/library_impl.h"
#include "tools/serve/library/listed_file.h"
#include "tools/serve/library/playlist_file.h"

namespace koli::serve {
namespace {

constexpr size_t kPlaylistBytesMax = 1 << 20;
constexpr size_t kShareDepth = 2;  // "/volume1/music"

/// The file's first bytes; false when it cannot be read.
bool ReadBytes(const UniqueFd& file, size_t max, std::string* bytes) {
    bytes->resize(max);
    size_t have = 0;
    while (have < max) {
        const ssize_t count = pread(file.get(), bytes->data() + have, max - have, static_cast<off_t>(have));
        if (count < 0) return false;
        if (count == 0) break;
        have += static_cast<size_t>(count);
    }
    bytes->resize(have);
    return true;
}

/// The databases are left before a disk is waited for.
bool IsListed(const ctl::Places& places, const std::string& path, FileKind* kind) {
    PageRows rows(places);
    return rows.is_open() && rows->KindOf(path, kind);
}

PlaylistEntry EntryOf(RowReader& rows, const std::string& playlist, const PlaylistLine& line) {
    PlaylistEntry entry;
    entry.text = line.title.empty() ? line.path : line.title;
    const std::string path = PlaylistTarget(playlist, line.path);
    if (path.empty()) return entry;
    FilmRow film;
    entry.is_listed = rows.Song(path, &entry.song);
    if (entry.is_listed || !rows.Film(path, &film)) return entry;
    entry.is_listed = true;
    static_cast<FileRow&>(entry.song) = film;
    entry.song.seconds = film.seconds;
    entry.song.has_cover = film.has_cover;
    return entry;
}

/// Its first `names` names: "/a/b/c" gives "/a/b".
std::string FirstNames(const std::string& path, size_t names) {
    size_t end = 0;
    for (; names > 0 && end != std::string::npos; --names)
        end = path.find('/', end + 1);
    return path.substr(0, end);
}

/// The folders directly in a folder, however deep the files lie that make them known.
std::vector<std::string> FoldersIn(const Snapshot& snapshot, const std::string& folder) {
    const std::string first = folder == "/" ? folder : host::FirstKeyBelow(folder);
    const size_t depth =
        folder == "/" ? kShareDepth : static_cast<size_t>(std::count(first.begin(), first.end(), '/'));
    std::vector<std::string> found;
    for (size_t at = snapshot.FolderAt(first); at < snapshot.folders.size();) {
        const std::string path = snapshot.texts.Text(snapshot.folders[at]);
        if (!path.starts_with(first)) break;
        const std::string child = FirstNames(path, depth);
        found.push_back(child);
        at = child.size() < path.size() ? snapshot.FolderAt(host::KeyBehind(child)) : at + 1;
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

}  // namespace

Piece<FilmRow> Library::Films(FileOrder order, Span span) const {
    const auto snapshot = impl_->Now();
    const Numbers& films = order == FileOrder::kTitle ? snapshot->films_by_title : snapshot->films_by_newest;
    return FilePiece<FilmRow>(impl_->places(), *snapshot, FileKind::kFilm, films, span, &RowReader::Film);
}

Piece<PlaylistRow> Library::Playlists(Span span) const {
    const auto snapshot = impl_->Now();
    return FilePiece<PlaylistRow>(impl_->places(), *snapshot, FileKind::kPlaylist,
                                  snapshot->playlists_by_title, span, &RowReader::Playlist);
}

bool Library::Playlist(const std::string& path, PlaylistView* view) const {
    PageRows rows(impl_->places());
    if (!rows.is_open() || !rows->Playlist(path, &view->playlist)) return false;
    UniqueFd file;
    std::string bytes;
    view->is_readable =
        OpenBelowShare(path, &file) == OpenVerdict::kOpened && ReadBytes(file, kPlaylistBytesMax, &bytes);
    if (!view->is_readable) return true;
    const std::vector<PlaylistLine> lines = PlaylistLines(bytes, kPlaylistEntriesMax + 1);
    view->is_cut = lines.size() > kPlaylistEntriesMax || bytes.size() == kPlaylistBytesMax;
    for (size_t i = 0; i < std::min(lines.size(), kPlaylistEntriesMax); ++i)
        view->entries.push_back(EntryOf(*rows, path, lines[i]));
    return true;
}

Piece<FolderEntry> Library::Folder(const std::string& path, Span span) const {
    const auto snapshot = impl_->Now();
    const std::vector<std::string> folders = FoldersIn(*snapshot, path);
    const uint32_t folder = snapshot->FolderOf(path);
    std::vector<std::pair<FileKind, uint32_t>> files;
    for (size_t kind = 0; folder != 0 && kind < kFileKinds; ++kind)
        for (const uint32_t file :
             snapshot->FilesWhere(static_cast<FileKind>(kind),
                                  [folder](const Group& group) { return group.folder == folder; }))
            files.emplace_back(static_cast<FileKind>(kind), file);
    Numbers all(folders.size() + files.size());
    for (uint32_t i = 0; i < all.size(); ++i)
        all[i] = i;
    return PieceOf<FolderEntry>(all, span, [&](uint32_t i, FolderEntry* entry) {
        if (i < folders.size()) {
            *entry = {.path = folders[i], .is_folder = true};
        } else {
            const auto& [kind, file] = files[i - folders.size()];
            *entry = {.path = snapshot->PathOf(kind, file), .is_folder = false, .kind = kind};
        }
        return true;
    });
}

EntryView Library::Entry(const std::string& path) const {
    PageRows rows(impl_->places());
    EntryView view;
    if (rows.is_open() && !path.empty()) {
        view.sections = ctl::EntryOf(rows.store(), path);
        view.is_file = rows->KindOf(path, &view.kind);
    }
    view.error = rows.store().error();
    return view;
}

bool Library::Song(const std::string& path, SongRow* song) const {
    PageRows rows(impl_->places());
    return rows.is_open() && rows->Song(path, song);
}

bool Library::Film(const std::string& path, FilmRow* film) const {
    PageRows rows(impl_->places());
    return rows.is_open() && rows->Film(path, film);
}

bool Library::Picture(const std::string& path, PictureRow* picture) const {
    PageRows rows(impl_->places());
    if (!rows.is_open() || !rows->Picture(path, picture)) return false;
    picture->album = AlbumOfFile(*impl_->Now(), path);
    return true;
}

OpenVerdict Library::OpenListed(const std::string& path, UniqueFd* file) const {
    FileKind kind{};
    if (!IsListed(impl_->places(), path, &kind)) return OpenVerdict::kNotListed;
    return OpenBelowShare(path, file);
}

OpenVerdict Library::OpenCover(const std::string& path, UniqueFd* file) const {
    FileKind kind{};
    if (!IsListed(impl_->places(), path, &kind)) return OpenVerdict::kNotListed;
    return kind == FileKind::kPicture ? OpenBelowShare(path, file) : OpenFirstCover(path, file);
}

}  // namespace koli::serve
