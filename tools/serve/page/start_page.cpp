// What is new, and how much there is.
#include "tools/serve/page/live.h"
#include "tools/serve/page/pages.h"
#include "tools/serve/page/parts.h"
#include "tools/serve/page/values.h"

namespace koli::serve {
namespace {

/// `noun` is one of them; the plural is itself and "s".
void AddCount(const std::string& noun, size_t count, const Address& address, Markup& main) {
    main << "<a";
    main.Link("href", address) << "><b>";
    main.Text(Grouped(static_cast<int64_t>(count))) << "</b>";
    main.Text(count == 1 ? noun : noun + "s") << "</a>";
}

void AddCounts(const Totals& totals, Markup& main) {
    main << "<nav class=\"facts\" aria-label=\"What there is\">";
    AddCount("album", totals.albums, Address("/music/albums"), main);
    AddCount("artist", totals.artists, Address("/music/artists"), main);
    AddCount("film", totals.films, Address("/films"), main);
    AddCount("picture", totals.pictures, Address("/photos/dates"), main);
    AddCount("photo album", totals.photo_albums, Address("/photos/albums"), main);
    AddCount("playlist", totals.playlists, Address("/playlists"), main);
    if (totals.problems > 0) AddCount("problem", totals.problems, Address("/problems"), main);
    main << "</nav>";
}

void AddHeadOf(const char* what, const Address& all, Markup& main) {
    main << "<div class=\"head\"><h2>";
    main.Text(what) << "</h2><a";
    main.Link("href", all).Attribute("aria-label", std::string("Show all: ") + what) << ">Show all</a></div>";
}

void AddNewest(const Visit& visit, Markup& main) {
    const auto albums = visit.library.Albums(AlbumOrder::kNewest, {0, 12});
    if (!albums.rows.empty()) {
        AddHeadOf("Newest albums", Address("/music/albums").Query("order", "newest"), main);
        main << "<ul class=\"grid\">";
        for (const AlbumRow& album : albums.rows)
            AddAlbumCard(album, main);
        main << "</ul>";
    }
    const auto pictures = visit.library.Pictures({0, 24});
    if (!pictures.rows.empty()) {
        AddHeadOf("Latest pictures", Address("/photos/dates"), main);
        main << "<ul class=\"photos\">";
        for (const PictureRow& picture : pictures.rows)
            AddTile(picture, EntryAddress(picture.path), main);
        main << "</ul>";
    }
    const auto films = visit.library.Films(FileOrder::kNewest, {0, 6});
    if (films.rows.empty()) return;
    AddHeadOf("Newest films", Address("/films").Query("order", "newest"), main);
    main << "<ul class=\"grid wide\">";
    for (const FilmRow& film : films.rows)
        AddFilmCard(film, main);
    main << "</ul>";
}

}  // namespace

Reply StartPage(const Visit& visit) {
    const Totals totals = visit.library.Counts();
    Markup main = visit.NewMarkup();
    main << "<h1 class=\"away\">Media library</h1>";
    if (totals.songs + totals.films + totals.pictures + totals.playlists == 0)
        main << EmptyNote(visit, kEmptyLibrary, kFillLibrary);
    AddCounts(totals, main);
    AddLive(visit, main);
    AddNewest(visit, main);
    return PageReply(visit.Head("", Area::kNone), main);
}

}  // namespace koli::serve
