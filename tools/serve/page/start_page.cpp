// What is new, and how much there is.
#include "tools/serve/page/live.h"
#include "tools/serve/page/pages.h"
#include "tools/serve/page/parts.h"
#include "tools/serve/page/values.h"

namespace koli::serve {
namespace {

void AddCount(const char* name, size_t count, const Address& address, Markup& main) {
    main << "<a";
    main.Link("href", address) << "><b>";
    main.Text(Grouped(static_cast<int64_t>(count))) << "</b>";
    main.Text(name) << "</a>";
}

void AddCounts(const Totals& totals, Markup& main) {
    main << "<nav class=\"facts\" aria-label=\"What there is\">";
    AddCount("albums", totals.albums, Address("/music/albums"), main);
    AddCount("artists", totals.artists, Address("/music/artists"), main);
    AddCount("films", totals.films, Address("/films"), main);
    AddCount("pictures", totals.pictures, Address("/photos/dates"), main);
    AddCount("photo albums", totals.photo_albums, Address("/photos/albums"), main);
    AddCount("playlists", totals.playlists, Address("/playlists"), main);
    main << "</nav>";
}

void AddNewest(const Visit& visit, Markup& main) {
    const auto albums = visit.library.Albums(AlbumOrder::kNewest, {0, 12});
    if (!albums.rows.empty()) main << "<h2>Newest albums</h2><ul class=\"grid\">";
    for (const AlbumRow& album : albums.rows)
        AddAlbumCard(album, main);
    if (!albums.rows.empty()) main << "</ul>";
    const auto pictures = visit.library.Pictures({0, 24});
    if (!pictures.rows.empty()) main << "<h2>Latest pictures</h2><ul class=\"photos\">";
    for (const PictureRow& picture : pictures.rows)
        AddTile(picture, EntryAddress(picture.path), main);
    if (!pictures.rows.empty()) main << "</ul>";
    const auto films = visit.library.Films(FileOrder::kNewest, {0, 6});
    if (!films.rows.empty()) main << "<h2>Newest films</h2><ul class=\"grid wide\">";
    for (const FilmRow& film : films.rows)
        AddFilmCard(film, main);
    if (!films.rows.empty()) main << "</ul>";
}

}  // namespace

Reply StartPage(const Visit& visit) {
    const Totals totals = visit.library.Counts();
    Markup main = visit.NewMarkup();
    main << "<h1 class=\"away\">Media library</h1>";
    if (totals.songs + totals.films + totals.pictures + totals.playlists == 0)
        main << NothingNote(
            visit, "The library is empty.",
            "\"koliindexctl add FOLDER\" has the daemon look at what is in a folder of a share.");
    AddCounts(totals, main);
    AddLive(visit, main);
    AddNewest(visit, main);
    return PageReply(visit.Head("", Area::kNone), main);
}

}  // namespace koli::serve
