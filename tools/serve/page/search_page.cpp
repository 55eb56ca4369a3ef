// What holds the words that were searched for.
#include "tools/serve/page/pages.h"
#include "tools/serve/page/parts.h"
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
        AddKind(found_.albums, "albums", "Albums", "grid",
                [this](const AlbumRow& album) { AddAlbumCard(album, main_); });
        AddKind(found_.artists, "artists", "Artists", "names", [this](const NamedRow& artist) {
            AddNamed(Address("/music/artist").Word(artist.name), artist.name,
                     GroupedCount(static_cast<int64_t>(artist.count), "song"), main_);
        });
        AddKind(found_.songs, "songs", "Songs", "tracks",
                [this](const SongRow& song) { AddSong(song, "", main_); });
        AddKind(found_.films, "films", "Films", "grid wide",
                [this](const FilmRow& film) { AddFilmCard(film, main_); });
        AddKind(found_.pictures, "pictures", "Pictures", "photos",
                [this](const PictureRow& picture) { AddTile(picture, EntryAddress(picture.path), main_); });
        AddKind(found_.photo_albums, "photo-albums", "Photo albums", "grid",
                [this](const PhotoAlbumRow& album) { AddPhotoAlbumCard(album, main_); });
        AddKind(found_.playlists, "playlists", "Playlists", "grid",
                [this](const PlaylistRow& list) { AddPlaylistCard(list, main_); });
        return std::move(main_);
    }

  private:
    Address KindAddress(Literal kind) const {
        return Address("/search").Query("q", text_).Query("in", kind.text);
    }

    /// A heading, and the list of what was found of a kind; nothing where there is none of it.
    template <typename Row, typename AddRow>
    void AddKind(const Piece<Row>& piece, Literal kind, const char* name, Literal list, AddRow add) {
        if (piece.total == 0 || (!kind_.empty() && kind_ != kind.text)) return;
        AddHead(piece.total, kind, name);
        main_ << "<ul class=\"" << list << "\"";
        if (!kind_.empty()) main_ << " id=\"list\"";  // by which the script finds the one that goes on
        main_ << ">";
        for (const Row& row : piece.rows)
            add(row);
        main_ << "</ul>";
        if (!kind_.empty()) AddMore(visit_.Piece(kMany), piece.total, KindAddress(kind), main_);
        main_ << "</section>";
    }

    void AddHead(size_t total, Literal kind, const char* name) {
        main_ << "<section class=\"block\"><div class=\"head\"><h2>";
        main_.Text(name) << "</h2><span class=\"muted\">";
        main_.Text(Grouped(static_cast<int64_t>(total))) << "</span>";
        if (kind_.empty() && total > kFew) {
            main_ << "<a";
            main_.Link("href", KindAddress(kind)) << ">Show all</a>";
        }
        main_ << "</div>";
    }

    const Visit& visit_;
    const std::string& text_;
    const std::string& kind_;  // the only one that is shown; "" = a few of each
    const SearchView& found_;
    Markup main_;
};

std::string CountText(const SearchView& found) {
    const size_t all = found.albums.total + found.artists.total + found.songs.total + found.films.total +
                       found.pictures.total + found.photo_albums.total + found.playlists.total;
    return all == 0 ? "Nothing found" : Grouped(static_cast<int64_t>(all)) + " found";
}

}  // namespace

Reply SearchPage(const Visit& visit) {
    constexpr size_t kLongest = 400;  // bytes
    const std::string text = visit.Value("q").substr(0, kLongest);
    const Span span = visit.Value("in").empty() ? Span{0, kFew} : visit.Piece(kMany);
    const SearchView found = visit.library.Search(text, span);
    Markup main = visit.NewMarkup();
    main << "<h1>Search</h1><p class=\"muted\" data-said>";
    main.Text(found.has_words ? CountText(found) : "") << "</p>";
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
    PageHead head =
        visit.Head(TitleOf({text, "Search", visit.Value("in"), FromText(visit.Piece(kMany))}), Area::kNone);
    head.searched = text;
    return PageReply(head, main);
}

}  // namespace koli::serve
