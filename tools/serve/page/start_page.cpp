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
        main << NothingNote(visit, kEmptyLibrary, kFillLibrary);
    AddCounts(totals, main);
    AddLive(visit, main);
    AddNewest(visit, main);
    return PageReply(visit.Head("", Area::kNone), main);
}

}  // namespace koli::serve
