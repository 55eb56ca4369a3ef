// The pages of the library, one for each kind of address.  Each is whole without a script.
#pragma once

#include "tools/serve/page/visit.h"

namespace koli::serve {

Reply StartPage(const Visit& visit);

Reply AlbumsPage(const Visit& visit);
Reply ArtistsPage(const Visit& visit);
Reply GenresPage(const Visit& visit);
Reply YearsPage(const Visit& visit);
Reply AlbumPage(const Visit& visit);
Reply ArtistPage(const Visit& visit);
Reply GenrePage(const Visit& visit);
Reply YearPage(const Visit& visit);

Reply FilmsPage(const Visit& visit);

Reply PhotoAlbumsPage(const Visit& visit);
Reply PhotoAlbumPage(const Visit& visit);
Reply PhotoDatesPage(const Visit& visit);
Reply PhotoDatePage(const Visit& visit);

Reply PlaylistsPage(const Visit& visit);
Reply PlaylistPage(const Visit& visit);

Reply EntryPage(const Visit& visit);
Reply FolderPage(const Visit& visit);

Reply SearchPage(const Visit& visit);
Reply ProblemsPage(const Visit& visit);
Reply StatusPage(const Visit& visit);

}  // namespace koli::serve
