// Albums, artists, genres, years.
#include "tools/serve/page/pages.h"
#include "tools/serve/page/parts.h"
#include "tools/serve/page/values.h"

namespace koli::serve {
namespace {

constexpr size_t kCards = 60, kNames = 200, kSongs = 200;

constexpr char kNoMusic[] = "There is no music in the library yet.";
constexpr char kAddMusic[] =
    "Once there are songs on the share, \"koliindexctl add FOLDER\" has the daemon look at them.";

struct Order {
    Literal value;
    const char* name;
    const char* told;  // in the title of the window
    AlbumOrder order;
};
constexpr Order kOrders[] = {{"title", "Title", "", AlbumOrder::kTitle},
                             {"artist", "Artist", "by artist", AlbumOrder::kArtist},
                             {"year", "Year", "by year", AlbumOrder::kYear},
                             {"newest", "Newest", "newest first", AlbumOrder::kNewest}};

Address AddressOf(const Order& order) {
    const Address albums("/music/albums");
    return order.order == AlbumOrder::kTitle ? albums : Address(albums).Query("order", order.value.text);
}

const Order& OrderOf(const Visit& visit) {
    for (const Order& order : kOrders)
        if (visit.Value("order") == order.value.text) return order;
    return kOrders[0];
}

void AddOrders(const Order& current, Markup& main) {
    main << "<nav class=\"tabs\" aria-label=\"Order\"><ul>";
    for (const Order& order : kOrders) {
        main << "<li><a";
        main.Link("href", AddressOf(order));
        if (&order == &current) main << " aria-current=\"true\"";
        main << ">";
        main.Text(order.name) << "</a></li>";
    }
    main << "</ul></nav>";
}

void AddAlbums(const Piece<AlbumRow>& albums, Markup& main) {
    main << "<ul class=\"grid\" id=\"list\">";
    for (const AlbumRow& album : albums.rows)
        AddAlbumCard(album, main);
    main << "</ul>";
}

/// What all three lists of names have in common.
struct NamesPage {
    const char* tab;
    const char* nameless;
    Literal list, one;
};

Reply NamesReply(const Visit& visit, const NamesPage& page, const Piece<NamedRow>& names) {
    Markup main = visit.NewMarkup();
    AddHeading(page.tab, Grouped(static_cast<int64_t>(names.total)), main);
    if (names.total == 0) {
        main << EmptyNote(visit, kNoMusic, kAddMusic);
    } else {
        main << "<ul class=\"names\" id=\"list\">";
        for (const NamedRow& name : names.rows)
            AddNamed(Address(page.one).Word(name.name), name.name.empty() ? page.nameless : name.name,
                     GroupedCount(static_cast<int64_t>(name.count), "song"), main);
        main << "</ul>";
        AddMore(visit.Piece(kNames), names.total, Address(page.list), main);
    }
    const std::string window = TitleOf({page.tab, "Music", FromText(visit.Piece(kNames))});
    return PageReply(visit.Head(window, Area::kMusic, page.tab), main);
}

/// What is asked for by one name.
struct NamedPage {
    SongsBy by;
    const char* tab;
    const char* nameless;
    Literal one;
};

void AddViews(const Address& albums, const Address& songs, bool is_songs, Markup& main) {
    main << "<nav class=\"tabs\" aria-label=\"What of it\"><ul><li><a";
    main.Link("href", albums);
    if (!is_songs) main << " aria-current=\"true\"";
    main << ">Albums</a></li><li><a";
    main.Link("href", songs);
    if (is_songs) main << " aria-current=\"true\"";
    main << ">Songs</a></li></ul></nav>";
}

Reply NamedReply(const Visit& visit, const NamedPage& page) {
    const auto name = visit.WordAt(2);
    if (!name) return MissingPage(visit);
    const bool is_songs = visit.Value("view") == "songs";
    const Address here = Address(page.one).Word(*name), songs_here = Address(here).Query("view", "songs");
    const Span span = visit.Piece(is_songs ? kSongs : kCards);
    const auto songs = visit.library.Songs(page.by, *name, is_songs ? span : Span{0, 0});
    const auto albums = visit.library.AlbumsOf(page.by, *name, is_songs ? Span{0, 0} : span);
    if (songs.total == 0) return MissingPage(visit);
    Markup main = visit.NewMarkup();
    const std::string title = name->empty() ? page.nameless : *name;
    AddHeading(title,
               GroupedCount(static_cast<int64_t>(albums.total), "album") + ", " +
                   GroupedCount(static_cast<int64_t>(songs.total), "song"),
               main);
    AddViews(here, songs_here, is_songs, main);
    if (is_songs) {
        AddPlayAll(main);
        main << "<ol class=\"tracks\" id=\"list\">";
        for (const SongRow& song : songs.rows)
            AddSong(song, "", main);
        main << "</ol>";
        AddMore(span, songs.total, songs_here, main);
    } else {
        AddAlbums(albums, main);
        AddMore(span, albums.total, here, main);
    }
    const std::string window = TitleOf({title, page.tab, is_songs ? "Songs" : "", FromText(span)});
    return PageReply(visit.Head(window, Area::kMusic, page.tab), main);
}

}  // namespace

Reply AlbumsPage(const Visit& visit) {
    const Order& order = OrderOf(visit);
    const Span span = visit.Piece(kCards);
    const auto albums = visit.library.Albums(order.order, span);
    Markup main = visit.NewMarkup();
    AddHeading("Albums", Grouped(static_cast<int64_t>(albums.total)), main);
    if (albums.total == 0) {
        main << EmptyNote(visit, kNoMusic, kAddMusic);
    } else {
        AddOrders(order, main);
        AddAlbums(albums, main);
        AddMore(span, albums.total, AddressOf(order), main);
    }
    const std::string window = TitleOf({"Albums", "Music", order.told, FromText(span)});
    return PageReply(visit.Head(window, Area::kMusic, "Albums"), main);
}

Reply ArtistsPage(const Visit& visit) {
    return NamesReply(visit, {"Artists", "Unknown artist", "/music/artists", "/music/artist"},
                      visit.library.Artists(visit.Piece(kNames)));
}

Reply GenresPage(const Visit& visit) {
    return NamesReply(visit, {"Genres", "No genre", "/music/genres", "/music/genre"},
                      visit.library.Genres(visit.Piece(kNames)));
}

Reply YearsPage(const Visit& visit) {
    return NamesReply(visit, {"Years", "No year", "/music/years", "/music/year"},
                      visit.library.Years(visit.Piece(kNames)));
}

Reply ArtistPage(const Visit& visit) {
    return NamedReply(visit, {SongsBy::kArtist, "Artists", "Unknown artist", "/music/artist"});
}

Reply GenrePage(const Visit& visit) {
    return NamedReply(visit, {SongsBy::kGenre, "Genres", "No genre", "/music/genre"});
}

Reply YearPage(const Visit& visit) {
    return NamedReply(visit, {SongsBy::kYear, "Years", "No year", "/music/year"});
}

}  // namespace koli::serve
