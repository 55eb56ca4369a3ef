// What the pages show, as plain values.  Texts and paths are the databases' bytes: nobody has escaped them,
// and paths need not be UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/ctl/output.h"

namespace koli::serve {

inline constexpr size_t kPieceMax = 1000;  // rows, whatever `count` says

/// The part of a list that is asked for.
struct Span {
    size_t from = 0;
    size_t count = 100;
};

/// A part of a list: rows[0] is the list's row `from`.
template <typename Row>
struct Piece {
    std::vector<Row> rows = {};
    size_t from = 0;
    size_t total = 0;  // of the whole list
};

enum class FileKind : uint8_t { kSong, kFilm, kPicture, kPlaylist };
inline constexpr size_t kFileKinds = 4;

/// What every file has.
struct FileRow {
    FileKind kind = FileKind::kSong;
    std::string path = {};
    std::string title = {};  // never "": the file's name where nothing else is known
    int64_t bytes = 0;       // 0 where the database does not tell
};

struct SongRow : FileRow {
    std::string artist = {}, album = {}, genre = {};
    int64_t disc = 0, track = 0, year = 0;  // 0 = unknown
    double seconds = 0;
    bool has_cover = false;
};

struct FilmRow : FileRow {
    std::string description = {};
    double seconds = 0;
    int64_t width = 0, height = 0;
    int64_t year = 0;
    bool has_cover = false;
};

struct PictureRow : FileRow {
    std::string description = {};  // the caption's second part
    std::string taken = {};        // "2024-05-31 10:11:12", "" = unknown
    std::string camera = {};       // the model, or the maker where that is all that is known
    int64_t width = 0, height = 0;
    std::string album = {};  // the name of the photo album that it lies in, "" = none
};

/// An album of music is told by its title and artist.
struct AlbumKey {
    std::string artist = {};  // "" = several, or unknown
    std::string title = {};   // "" = songs that name no album
    bool operator==(const AlbumKey&) const = default;
};

struct AlbumRow {
    AlbumKey key = {};
    bool is_of_several = false;  // artists
    int64_t year = 0;            // the latest of its songs, 0 = unknown
    size_t songs = 0;
    std::string cover = {};  // a song to ask for the cover: one that has one, else the first
    bool has_cover = false;
};

/// An artist, a genre, a year ("1999") or a month ("2024-05", "" = unknown) and what there is of it.
struct NamedRow {
    std::string name = {};
    size_t count = 0;        // songs; of a month, pictures
    size_t albums = 0;       // of an artist, a genre or a year
    std::string cover = {};  // a song, or of a month a picture, to show for it
    bool has_cover = false;
};

struct PhotoAlbumRow {
    std::string name = {};   // "Trips/2024": its folder below the photo share
    std::string title = {};  // never "": the folder's name where it has no other
    std::string description = {};
    bool is_public = false;           // everybody may see it
    bool is_enabled = true;           // else nobody may
    size_t pictures = 0;              // in its folder, not those of the albums below it
    std::string cover = {};           // the path of a picture, "" when it has none
    std::string folder = {};          // its path
    std::vector<int64_t> users = {};  // who may see one that is not public; of one album alone
};

struct PlaylistRow : FileRow {};

/// A line of a playlist.
struct PlaylistEntry {
    std::string text = {};   // as the playlist has it, or what it calls it
    bool is_listed = false;  // it is a song or film of the library:
    SongRow song = {};       // of a film its kind, path, title and seconds
};

struct PlaylistView {
    PlaylistRow playlist = {};
    std::vector<PlaylistEntry> entries = {};
    bool is_readable = false;  // else its file could not be opened, and there are no entries
    bool is_cut = false;       // it has more than kPlaylistEntriesMax, or is too large
};
inline constexpr size_t kPlaylistEntriesMax = 1000;

/// What stands beside a file in a list.
struct Neighbours {
    std::string before = {}, behind = {};  // paths, "" = nothing
    size_t at = 0, total = 0;              // its place, from 0, and the length of the list
};

/// A folder or a file in one.
struct FolderEntry {
    std::string path = {};
    bool is_folder = false;
    FileKind kind = FileKind::kSong;  // of a file
};

/// Everything that is stored for a file or folder, as `show` tells it.
struct EntryView {
    std::vector<ctl::Section> sections = {};  // none: nothing is stored
    bool is_file = false;                     // it is one of the library:
    FileKind kind = FileKind::kSong;
    std::string error = {};  // why a database could not be read, "" = it was
};

struct ProblemRow {
    std::string path = {}, time = {}, reason = {};
};

/// How much there is.
struct Totals {
    size_t songs = 0, films = 0, pictures = 0, playlists = 0;
    size_t albums = 0, artists = 0, genres = 0, photo_albums = 0;
    size_t problems = 0;
};

/// What holds all words that were searched for, the best first: what begins with them, then where a word
/// begins so, then anywhere.
struct SearchView {
    Piece<AlbumRow> albums;
    Piece<NamedRow> artists;
    Piece<SongRow> songs;
    Piece<FilmRow> films;
    Piece<PictureRow> pictures;
    Piece<PhotoAlbumRow> photo_albums;
    Piece<PlaylistRow> playlists;
    bool has_words = false;  // there was something to search for
};

}  // namespace koli::serve
