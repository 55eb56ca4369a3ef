#include "tools/serve/page/site.h"

#include <string_view>

#include "tools/serve/page/assets.h"
#include "tools/serve/page/pages.h"

namespace koli::serve {
namespace {

Reply AssetPage(const Visit& visit) {
    return AssetReply(visit.request.path.back());
}

/// The daemon at this moment, for programs.
Reply LivePage(const Visit& visit) {
    return {.type = "application/json", .body = visit.library.LiveJson()};
}

constexpr size_t kAny = SIZE_MAX;  // segments behind those that are named: of a path

struct Route {
    std::string_view first, second;  // "" = none
    size_t segments;                 // in all
    Reply (*page)(const Visit&);
};

constexpr Route kRoutes[] = {{"", "", 0, StartPage},
                             {"assets", "", 2, AssetPage},
                             {"entry", "", kAny, EntryPage},
                             {"films", "", 1, FilmsPage},
                             {"folder", "", kAny, FolderPage},
                             {"live", "", 1, LivePage},
                             {"music", "", 1, AlbumsPage},
                             {"music", "album", 4, AlbumPage},
                             {"music", "albums", 2, AlbumsPage},
                             {"music", "artist", 3, ArtistPage},
                             {"music", "artists", 2, ArtistsPage},
                             {"music", "genre", 3, GenrePage},
                             {"music", "genres", 2, GenresPage},
                             {"music", "year", 3, YearPage},
                             {"music", "years", 2, YearsPage},
                             {"photos", "", 1, PhotoAlbumsPage},
                             {"photos", "album", kAny, PhotoAlbumPage},
                             {"photos", "albums", 2, PhotoAlbumsPage},
                             {"photos", "date", 3, PhotoDatePage},
                             {"photos", "dates", 2, PhotoDatesPage},
                             {"playlist", "", kAny, PlaylistPage},
                             {"playlists", "", 1, PlaylistsPage},
                             {"problems", "", 1, ProblemsPage},
                             {"search", "", 1, SearchPage},
                             {"status", "", 1, StatusPage}};

bool Matches(const Route& route, const std::vector<std::string>& path) {
    if (route.segments != kAny && route.segments != path.size()) return false;
    if (route.first.empty()) return path.empty();
    return !path.empty() && path[0] == route.first &&
           (route.second.empty() || (path.size() > 1 && path[1] == route.second));
}

}  // namespace

Reply SitePage(const Visit& visit) {
    const Library::Page page(visit.library);
    for (const Route& route : kRoutes)
        if (Matches(route, visit.request.path)) return route.page(visit);
    return MissingPage(visit);
}

}  // namespace koli::serve
