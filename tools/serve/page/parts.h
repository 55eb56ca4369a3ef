// What several pages are made of.
#pragma once

#include <string>
#include <string_view>

#include "tools/serve/page/visit.h"

namespace koli::serve {

/// The square in which something is shown: a small picture, and under it, for as long as there is none, the
/// first letter of a name.
struct Art {
    std::string_view name = {};
    std::string_view path = {};  // of a picture, or of the file whose cover it is; "" = none
    bool is_cover = false;
    int side = 320;  // pixels: 160, 320, 640 or 1280
};

/// Where small pictures come from.
Address SmallAddress(std::string_view path, bool is_cover, int side);
/// Where the bytes of a file come from.
Address FileAddress(std::string_view path);
/// The page of one file.
Address EntryAddress(std::string_view path);
Address AlbumAddress(const AlbumKey& key);

void AddArt(const Art& art, Markup& to);

/// A link with a picture, a name and a line below it.
struct Card {
    const Address& address;
    Art art;
    std::string_view name;
    std::string_view sub = {};
};
void AddCard(const Card& card, Markup& to);

void AddAlbumCard(const AlbumRow& album, Markup& to);
void AddFilmCard(const FilmRow& film, Markup& to);
/// `parent`: the album whose page this is on, which need not be told.
void AddPhotoAlbumCard(const PhotoAlbumRow& album, Markup& to, std::string_view parent = {});
void AddPlaylistCard(const PlaylistRow& list, Markup& to);
/// A picture in a grid of them; `address` is that of its page.
void AddTile(const PictureRow& picture, const Address& address, Markup& to);
/// A song in a list.  `number` stands at its head, "" for none.
/// The artist is left out where a heading has named `artist` already.
void AddSong(const SongRow& song, const std::string& number, Markup& to, std::string_view artist = {});
/// The buttons that play the songs of the page one behind the other; they need the script.
void AddPlayAll(Markup& to);

/// What "in" is in the address of a picture that was reached by its date.
inline constexpr char kByDate[] = "date";
/// The links to what stands before and behind a file: in the album of a song, in the folder of a film or
/// picture, in the month of a picture that was reached by its date.
void AddTurns(const Visit& visit, FileKind kind, const std::string& path, Markup& to);

/// A name with its count.
void AddNamed(const Address& address, std::string_view name, const std::string& count, Markup& to);

/// "by whom" of an album.
std::string ArtistText(const AlbumRow& album);
std::string AlbumTitle(const AlbumKey& key);

/// The link to the piece behind this one, when there is one, and to the first when this is none.
void AddMore(Span span, size_t total, const Address& list, Markup& to);

/// What is said of a library with nothing in it, and what to do about it.
inline constexpr char kEmptyLibrary[] = "The library is empty.";
inline constexpr char kFillLibrary[] =
    "\"koliindexctl add FOLDER\" has the daemon look at what is in a folder of a share, \"koliindexctl watch "
    "FOLDER\" keeps it up to date.";

/// The folders on the way to a path, as links.
void AddFolderTrail(const std::string& path, Markup& to);

/// For a folder that is not there now, though files of it are stored.
Markup AwayNote(const std::string& folder);

/// A heading with a number beside it.
void AddHeading(std::string_view text, const std::string& count, Markup& to);

}  // namespace koli::serve
