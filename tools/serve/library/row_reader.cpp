#include "tools/serve/library/row_reader.h"

#include "base/path_names.h"
#include "platform/host/tables.h"
#include "tools/serve/library/moment.h"

namespace koli::serve {
namespace {

using Texts = std::vector<std::string>;

/// The first columns of every file.
enum FileColumn : int { kPath, kTitle, kBytes, kFileColumns };
const Texts kSong = {"path", "title", "file_size", "artist",   "album",    "genre",
                     "disc", "track", "year",      "duration", "has_cover"};
const Texts kFilm = {"path", "title", "file_size", "duration", "width", "height", "year", "has_cover"};
const Texts kCaption = {"path", "title", "description"};
const Texts kPicture = {"path",        "title",        "file_size", "date_taken",
                        "camera_make", "camera_model", "width",     "height"};
const Texts kPhoto = {"path",         "title", "file_size", "date_taken", "camera_make",
                      "camera_model", "width", "height",    "description"};
const Texts kPlaylist = {"path", "title", "file_size"};
const Texts kAlbum = {"sharename", "title", "description", "public", "enabled", "cover"};

std::string TextOf(const host::SqlStatement& row, int column) {
    return std::string(row.Field(column));
}

void FillFile(const host::SqlStatement& row, FileKind kind, const std::string& path, FileRow* file) {
    file->kind = kind;
    file->path = path;
    file->title = TextOf(row, kTitle);
    if (file->title.empty()) file->title = FileNameOf(path.c_str());
    file->bytes = row.Number(kBytes);
}

void FillPicture(const host::SqlStatement& row, PictureRow* picture) {
    enum Column : int { kTaken = kFileColumns, kMake, kModel, kWidth, kHeight };
    if (picture->taken.empty()) picture->taken = MomentText(row.Field(kTaken));
    if (picture->camera.empty()) picture->camera = TextOf(row, row.Field(kModel).empty() ? kMake : kModel);
    if (picture->width == 0) picture->width = row.Number(kWidth);
    if (picture->height == 0) picture->height = row.Number(kHeight);
}

bool IsTrue(std::string_view text) {
    return text == "t";
}

}  // namespace

bool RowReader::Look(Statement* statement, const char* table, const Texts& columns, const std::string& key) {
    if (*statement == nullptr) *statement = store_.ByKey(table, columns);
    if (*statement == nullptr) return false;
    (*statement)->Reset();
    return (*statement)->Fill(key).Next();
}

bool RowReader::Song(const std::string& path, SongRow* song) {
    enum Column : int { kArtist = kFileColumns, kAlbumName, kGenre, kDisc, kTrack, kYear, kSeconds, kCover };
    if (!Look(&song_, host::kMediaTables[kStoreMusic], kSong, path)) return false;
    FillFile(*song_, FileKind::kSong, path, song);
    song->artist = TextOf(*song_, kArtist);
    song->album = TextOf(*song_, kAlbumName);
    song->genre = TextOf(*song_, kGenre);
    song->disc = song_->Number(kDisc);
    song->track = song_->Number(kTrack);
    song->year = song_->Number(kYear);
    song->seconds = song_->RealNumber(kSeconds);
    song->has_cover = song_->Number(kCover) != 0;
    song_->Reset();
    return true;
}

bool RowReader::Film(const std::string& path, FilmRow* film) {
    enum Column : int { kSeconds = kFileColumns, kWidth, kHeight, kYear, kCover };
    if (!Look(&film_, host::kMediaTables[kStoreVideo], kFilm, path)) return false;
    FillFile(*film_, FileKind::kFilm, path, film);
    film->seconds = film_->RealNumber(kSeconds);
    film->width = film_->Number(kWidth);
    film->height = film_->Number(kHeight);
    film->year = film_->Number(kYear);
    film->has_cover = film_->Number(kCover) != 0;
    film_->Reset();
    if (!Look(&caption_, host::kPhotoTables[KOLI_VIDEO_DESC], kCaption, path)) return true;
    if (!caption_->Field(1).empty()) film->title = TextOf(*caption_, 1);
    film->description = TextOf(*caption_, 2);
    caption_->Reset();
    return true;
}

bool RowReader::Picture(const std::string& path, PictureRow* picture) {
    constexpr int kDescription = 8;
    const bool is_stored = Look(&picture_, host::kMediaTables[kStorePhoto], kPicture, path);
    if (is_stored) {
        FillFile(*picture_, FileKind::kPicture, path, picture);
        FillPicture(*picture_, picture);
        picture_->Reset();
    }
    if (!Look(&photo_, host::kPhotoTables[KOLI_PHOTO_INFO], kPhoto, path)) return is_stored;
    const std::string title = picture->title;
    FillFile(*photo_, FileKind::kPicture, path, picture);
    if (is_stored && photo_->Field(kTitle).empty()) picture->title = title;
    FillPicture(*photo_, picture);
    picture->description = TextOf(*photo_, kDescription);
    photo_->Reset();
    return true;
}

bool RowReader::Playlist(const std::string& path, PlaylistRow* playlist) {
    if (!Look(&playlist_, host::kMediaTables[kStorePlaylist], kPlaylist, path)) return false;
    FillFile(*playlist_, FileKind::kPlaylist, path, playlist);
    playlist_->Reset();
    return true;
}

bool RowReader::PhotoAlbum(const std::string& name, PhotoAlbumRow* album) {
    if (!Look(&album_, host::kPhotoTables[KOLI_PHOTO_SHARE], kAlbum, name)) return false;
    album->name = name;
    album->title = TextOf(*album_, 1);
    if (album->title.empty()) album->title = FileNameOf(name.c_str());
    album->description = TextOf(*album_, 2);
    album->is_public = IsTrue(album_->Field(3));
    album->is_enabled = IsTrue(album_->Field(4));
    album->cover = TextOf(*album_, 5);
    album_->Reset();
    return true;
}

std::vector<int64_t> RowReader::UsersOf(const std::string& album) const {
    std::vector<int64_t> users;
    const auto row = store_.Find(host::kPhotoTables[KOLI_PHOTO_SHARE], "sharename", album);
    if (row == nullptr || !row->Next()) return users;
    for (const auto& [name, field] : ctl::RecordOf(*row)) {
        if (name != "shareid") continue;
        const auto rights = store_.ByKey(host::kPhotoTables[KOLI_PHOTO_ACCESS_RIGHT], {"shareid", "userid"});
        if (rights != nullptr) rights->Integer(1, field.number);
        while (rights != nullptr && rights->Next())
            users.push_back(rights->Number(1));
    }
    return users;
}

bool RowReader::KindOf(const std::string& path, FileKind* kind) {
    for (size_t i = 0; i < kFileKinds; ++i) {
        Statement row;
        *kind = static_cast<FileKind>(i);
        if (Look(&row, host::kMediaTables[i], {"path"}, path)) return true;
    }
    Statement row;
    *kind = FileKind::kPicture;
    return Look(&row, host::kPhotoTables[KOLI_PHOTO_INFO], {"path"}, path);
}

}  // namespace koli::serve
