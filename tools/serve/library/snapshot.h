// What the pages' lists are made of: every file, grouped and in order, with the texts that are searched.
//
// Made once by SnapshotRead, then never changed: any number of threads may look at it.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/serve/library/blocks.h"
#include "tools/serve/library/moment.h"
#include "tools/serve/library/rows.h"
#include "tools/serve/library/text_pool.h"

namespace koli::serve {

/// A file: its number is its place in the order of the paths of its kind.
struct File {
    uint32_t name;      // in FilesOfKind::names: the file's name, and behind it title and caption
    uint32_t group;     // in FilesOfKind::groups
    Moment moment;      // of a picture when it was taken, of others when it came or was changed
    uint16_t title_at;  // where the folded title begins in the entry of `name`
    uint16_t track;
    uint8_t disc;
    bool has_cover;
    bool operator==(const File&) const = default;
};

/// Files one behind the other that have all of this in common; numbers of Snapshot::texts.
struct Group {
    uint32_t folder, artist, album, genre, composer, comment;
    uint32_t record;  // of songs, in Snapshot::records
    uint32_t first;   // file
    uint16_t year;
};

struct FilesOfKind {
    TextPool names;
    Blocks<File> files;
    Blocks<Group> groups;

    uint32_t First(size_t group) const { return groups[group].first; }
    uint32_t Behind(size_t group) const {
        return group + 1 < groups.size() ? groups[group + 1].first : static_cast<uint32_t>(files.size());
    }
};

/// A file's folded title, and, where that is a part of the file's name, what follows it there.
std::string_view TitleOf(const FilesOfKind& files, uint32_t file);

/// Subtitles and the tables of a DVD are stored as films, but nobody looks for one.
bool IsFilm(const FilesOfKind& films, uint32_t number);

/// Texts that many have in common; number 0 is "".
struct Texts {
    TextPool pool;
    Blocks<uint32_t> places;

    std::string Text(uint32_t number) const { return pool.Text(places[number]); }
    std::string_view Folded(uint32_t number) const { return pool.Folded(places[number]); }
};

/// An album of music.
struct Record {
    uint32_t title = 0, artist = 0;  // texts; the artist is 0 when there are several
    uint32_t songs = 0, cover = 0;   // how many; the song that stands for it
    Moment newest = 0;
    uint16_t year = 0;
    bool is_of_several = false, has_cover = false;
};

/// An artist, a genre, a year or a month.
struct Named {
    uint32_t value;  // text, year or month
    uint32_t count, records;
    uint32_t cover;  // song or picture
    bool has_cover;
};

/// An album of the photo library.
struct PhotoFolder {
    uint32_t name;      // in Snapshot::album_texts: its name, and behind it title and description
    uint32_t folder;    // text, 0 = nothing is in it
    uint32_t pictures;  // directly in it
};

using Numbers = std::vector<uint32_t>;

struct Snapshot {
    Texts texts;
    int (*compare)(std::string_view a, std::string_view b) = nullptr;  // of paths: the files are in its order
    std::array<FilesOfKind, kFileKinds> kinds;

    Blocks<Record> records;
    Numbers by_title, by_artist, by_year, by_newest;  // records
    std::vector<Named> artists, genres, years, months;
    Numbers films_by_title, films_by_newest, playlists_by_title;
    Numbers pictures_by_newest;
    Numbers ranks;  // of texts that are artists, albums or genres: their order
    TextPool album_texts;
    std::vector<PhotoFolder> photo_albums;  // by name
    std::string photo_top;                  // the path of the photo share, "" = not known
    Numbers folders;                        // texts, by path
    size_t problems = 0;
    std::string error;  // why it is not whole; "" = it is

    const FilesOfKind& Of(FileKind kind) const { return kinds[static_cast<size_t>(kind)]; }
    FilesOfKind& Of(FileKind kind) { return kinds[static_cast<size_t>(kind)]; }
    std::string PathOf(FileKind kind, uint32_t file) const;
    /// The number of a folder's path; 0 = no file is in it.
    uint32_t FolderOf(std::string_view path) const;
    /// Where that path, or what would follow it, stands in `folders`.
    size_t FolderAt(std::string_view path) const;

    /// The files of the groups that are wanted, in the order of their paths.
    Numbers FilesWhere(FileKind kind, const std::function<bool(const Group&)>& is_wanted) const;
    /// The order of a record's or artist's songs: by album, disc, folder, track.  Of `songs` only those that
    /// stand in `span` then are put where they belong.
    void SortSongs(Numbers* songs, Span span = {.from = 0, .count = SIZE_MAX}) const;
    /// The album with these texts; records.size() without one.
    size_t RecordOf(const AlbumKey& key) const;
};

}  // namespace koli::serve
