// What holds the words that were searched for.
#include <algorithm>

#include "tools/serve/page/pages.h"
#include "tools/serve/page/parts.h"
#include "tools/serve/page/picture_parts.h"
#include "tools/serve/page/values.h"

namespace koli::serve {
namespace {

constexpr size_t kFew = 12;   // of each kind, on the page of all
constexpr size_t kMany = 60;  // on the page of one kind

class Results {
  public:
    Results(const Visit& visit, const std::string& text, const SearchView& found)
        : visit_(visit), text_(text), kind_(visit.Value("in")), found_(found), main_(visit.NewMarkup()) {}

    Markup Take() {
        AddAlbums();
        AddArtists();
        AddSongs();
        AddFilms();
        AddPictures();
        AddPhotoAlbums();
        AddPlaylists();
        return std::move(main_);
    }

  private:
    Address KindAddress(Literal kind) const {
        return Address("/search").Query("q", text_).Query("in", kind.text);
    }

    /// True when there is something of that kind to be shown; then its heading stands.
    template <typename Row>
    bool Begin(const Piece<Row>& piece, Literal kind, const char* name) {
        if (piece.total == 0 || (!kind_.empty() && kind_ != kind.text)) return false;
        main_ << "<section class=\"block\"><div class=\"head\"><h2>";
        main_.Text(name) << "</h2><span class=\"muted\">";
        main_.Text(Grouped(static_cast<int64_t>(piece.total))) << "</span>";
        if (kind_.empty() && piece.total > kFew) {
            main_ << "<a";
            main_.Link("href", KindAddress(kind)) << ">Show all</a>";
        }
        main_ << "</div>";
        return true;
    }

    template <typename Row>
    void End(const Piece<Row>& piece, Literal kind) {
        if (!kind_.empty()) AddMore(visit_.Piece(kMany), piece.total, KindAddress(kind), main_);
        main_ << "</section>";
    }

    /// Lists have a name by which the script finds them, when there is one.
    void Open(Literal list) {
        main_ << "<ul class=\"" << list << "\"";
        if (!kind_.empty()) main_ << " id=\"list\"";
        main_ << ">";
    }

    void AddAlbums() {
        if (!Begin(found_.albums, "albums", "Albums")) return;
        Open("grid");
        for (const AlbumRow& album : found_.albums.rows)
            AddAlbumCard(album, main_);
        main_ << "</ul>";
        End(found_.albums, "albums");
    }

    void AddArtists() {
        if (!Begin(found_.artists, "artists", "Artists")) return;
        Open("names");
        for (const NamedRow& artist : found_.artists.rows)
            AddNamed(Address("/music/artist").Word(artist.name), artist.name,
                     GroupedCount(static_cast<int64_t>(artist.count), "song"), main_);
        main_ << "</ul>";
        End(found_.artists, "artists");
    }

    void AddSongs() {
        if (!Begin(found_.songs, "songs", "Songs")) return;
        Open("tracks");
        for (const SongRow& song : found_.songs.rows)
            AddSong(song, "", main_);
        main_ << "</ul>";
        End(found_.songs, "songs");
    }

    void AddFilms() {
        if (!Begin(found_.films, "films", "Films")) return;
        Open("grid wide");
        for (const FilmRow& film : found_.films.rows)
            AddFilmCard(film, main_);
        main_ << "</ul>";
        End(found_.films, "films");
    }

    void AddPictures() {
        if (!Begin(found_.pictures, "pictures", "Pictures")) return;
        Open("photos");
        for (const PictureRow& picture : found_.pictures.rows)
            AddTile(picture, EntryAddress(picture.path), main_);
        main_ << "</ul>";
        End(found_.pictures, "pictures");
    }

    void AddPhotoAlbums() {
        if (!Begin(found_.photo_albums, "photo-albums", "Photo albums")) return;
        Open("grid");
        for (const PhotoAlbumRow& album : found_.photo_albums.rows)
            AddPhotoAlbumCard(album, main_);
        main_ << "</ul>";
        End(found_.photo_albums, "photo-albums");
    }

    void AddPlaylists() {
        if (!Begin(found_.playlists, "playlists", "Playlists")) return;
        Open("grid");
        for (const PlaylistRow& list : found_.playlists.rows)
            AddPlaylistCard(list, main_);
        main_ << "</ul>";
        End(found_.playlists, "playlists");
    }

    const Visit& visit_;
    const std::string& text_;
    const std::string& kind_;  // the only one that is shown; "" = a few of each
    const SearchView& found_;
    Markup main_;
};

}  // namespace

Reply SearchPage(const Visit& visit) {
    constexpr size_t kLongest = 400;  // bytes
    const std::string text = visit.Value("q").substr(0, kLongest);
    const Span span = visit.Value("in").empty() ? Span{0, kFew} : visit.Piece(kMany);
    const SearchView found = visit.library.Search(text, span);
    Markup main = visit.NewMarkup();
    AddHeading("Search", "", main);
    if (!found.has_words) {
        main << NoteOf(
            "Type some words above.",
            "They are searched in names, tags and captions of everything in the library; all of them "
            "must be there.");
    } else if (Markup results = Results(visit, text, found).Take(); !results.empty()) {
        main << results;
    } else {
        main << NothingNote(visit, "Nothing in the library has all of these words.", "Try fewer of them.");
    }
    PageHead head = visit.Head("Search", Area::kNone);
    head.searched = text;
    return PageReply(head, main);
}

}  // namespace koli::serve
