// Pictures, months and photo albums.
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "platform/host/path_range.h"
#include "tools/ctl/request_line.h"
#include "tools/serve/library/library_impl.h"

namespace koli::serve {
namespace {

/// The index of the album of that name; their number without one.
size_t AlbumNamed(const Snapshot& snapshot, const std::string& name) {
    const auto& albums = snapshot.photo_albums;
    const auto text = [&](const PhotoFolder& album) { return snapshot.album_texts.Text(album.name); };
    const auto at = std::lower_bound(
        albums.begin(), albums.end(), name,
        [&](const PhotoFolder& album, const std::string& wanted) { return text(album) < wanted; });
    return at != albums.end() && text(*at) == name ? static_cast<size_t>(at - albums.begin()) : albums.size();
}

/// The path of the first picture in the folder or below it; "" without one.
std::string FirstPictureBelow(const Snapshot& snapshot, const std::string& folder) {
    const std::string first = host::FirstKeyBelow(folder);
    const uint32_t at = FirstFileFrom(snapshot, FileKind::kPicture, first);
    if (at == snapshot.Of(FileKind::kPicture).files.size()) return "";
    std::string path = snapshot.PathOf(FileKind::kPicture, at);
    return path.starts_with(first) ? path : "";
}

bool FillAlbum(PageRows& rows, const Snapshot& snapshot, const PhotoFolder& folder, PhotoAlbumRow* album) {
    const std::string name = snapshot.album_texts.Text(folder.name);
    if (!rows.is_open() || !rows->PhotoAlbum(name, album)) return false;
    album->folder = snapshot.photo_top + "/" + name;
    album->pictures = folder.pictures;
    PictureRow chosen;
    album->cover = album->cover.empty() ? "" : ctl::VolumePath(album->cover);
    if (album->cover.empty() || !rows->Picture(album->cover, &chosen))
        album->cover = FirstPictureBelow(snapshot, album->folder);
    return true;
}

}  // namespace

std::string AlbumOfFile(const Snapshot& snapshot, const std::string& path) {
    const std::string top = snapshot.photo_top + "/";
    const size_t slash = path.rfind('/');
    if (snapshot.photo_top.empty() || !path.starts_with(top) || slash < top.size()) return "";
    const std::string name = path.substr(top.size(), slash - top.size());
    return AlbumNamed(snapshot, name) < snapshot.photo_albums.size() ? name : "";
}

Piece<PhotoAlbumRow> PhotoAlbumPiece(const ctl::Places& places, const Snapshot& snapshot,
                                     const Numbers& albums, Span span) {
    PageRows rows(places);
    return PieceOf<PhotoAlbumRow>(albums, span, [&](uint32_t number, PhotoAlbumRow* album) {
        return FillAlbum(rows, snapshot, snapshot.photo_albums[number], album);
    });
}

Piece<PictureRow> PicturePiece(const ctl::Places& places, const Snapshot& snapshot, const Numbers& pictures,
                               Span span) {
    Piece<PictureRow> piece =
        FilePiece<PictureRow>(places, snapshot, FileKind::kPicture, pictures, span, &RowReader::Picture);
    for (PictureRow& picture : piece.rows)
        picture.album = AlbumOfFile(snapshot, picture.path);
    return piece;
}

Numbers PicturesOfMonthAt(const Snapshot& snapshot, uint32_t month) {
    const auto month_of = [&](uint32_t picture) {
        return MonthOf(snapshot.Of(FileKind::kPicture).files[picture].moment);
    };
    const Numbers& all = snapshot.pictures_by_newest;
    const auto first = std::partition_point(all.begin(), all.end(),
                                            [&](uint32_t picture) { return month_of(picture) > month; });
    const auto behind =
        std::partition_point(first, all.end(), [&](uint32_t picture) { return month_of(picture) == month; });
    return {first, behind};
}

Piece<PictureRow> Library::Pictures(Span span) const {
    const auto snapshot = impl_->Now();
    return PicturePiece(impl_->places(), *snapshot, snapshot->pictures_by_newest, span);
}

Piece<NamedRow> Library::Months(Span span) const {
    const auto snapshot = impl_->Now();
    return PieceOf<NamedRow>(snapshot->months, span, [&](const Named& month, NamedRow* row) {
        row->name = MonthText(month.value);
        row->count = month.count;
        row->cover = snapshot->PathOf(FileKind::kPicture, month.cover);
        row->has_cover = true;
        return true;
    });
}

Piece<PictureRow> Library::PicturesOfMonth(const std::string& month, Span span) const {
    const auto snapshot = impl_->Now();
    const uint32_t wanted = MonthOf(month);
    const bool is_month = wanted != 0 || month.empty();
    return PicturePiece(impl_->places(), *snapshot,
                        is_month ? PicturesOfMonthAt(*snapshot, wanted) : Numbers(), span);
}

Piece<PhotoAlbumRow> Library::PhotoAlbums(Span span) const {
    const auto snapshot = impl_->Now();
    Numbers all(snapshot->photo_albums.size());
    for (uint32_t i = 0; i < all.size(); ++i)
        all[i] = i;
    return PhotoAlbumPiece(impl_->places(), *snapshot, all, span);
}

bool Library::PhotoAlbum(const std::string& name, PhotoAlbumRow* album) const {
    const auto snapshot = impl_->Now();
    const size_t number = AlbumNamed(*snapshot, name);
    PageRows rows(impl_->places());
    if (number == snapshot->photo_albums.size() ||
        !FillAlbum(rows, *snapshot, snapshot->photo_albums[number], album))
        return false;
    album->users = rows->UsersOf(name);
    return true;
}

Piece<PhotoAlbumRow> Library::AlbumsIn(const std::string& name, Span span) const {
    const auto snapshot = impl_->Now();
    const std::string first = name.empty() ? "" : name + "/";
    Numbers albums;
    for (uint32_t i = 0; i < snapshot->photo_albums.size(); ++i) {
        const std::string other = snapshot->album_texts.Text(snapshot->photo_albums[i].name);
        if (other.starts_with(first) && other.find('/', first.size()) == std::string::npos)
            albums.push_back(i);
    }
    return PhotoAlbumPiece(impl_->places(), *snapshot, albums, span);
}

Piece<PictureRow> Library::PicturesIn(const std::string& name, Span span) const {
    const auto snapshot = impl_->Now();
    const uint32_t folder = snapshot->FolderOf(snapshot->photo_top + "/" + name);
    const Numbers pictures = snapshot->FilesWhere(
        FileKind::kPicture, [folder](const Group& group) { return folder != 0 && group.folder == folder; });
    return PicturePiece(impl_->places(), *snapshot, pictures, span);
}

std::string Library::UserName(int64_t id) {
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> room(16384);
    const bool is_known = id >= 0 && id < UINT32_MAX &&
                          getpwuid_r(static_cast<uid_t>(id), &entry, room.data(), room.size(), &found) == 0 &&
                          found != nullptr;
    return is_known ? entry.pw_name : std::to_string(id);
}

}  // namespace koli::serve
