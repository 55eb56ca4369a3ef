// All films.
#include "tools/serve/page/pages.h"
#include "tools/serve/page/parts.h"
#include "tools/serve/page/values.h"

namespace koli::serve {

Reply FilmsPage(const Visit& visit) {
    constexpr size_t kFilms = 48;
    const Span span = visit.Piece(kFilms);
    const auto films = visit.library.Films(FileOrder::kTitle, span);
    Markup main = visit.NewMarkup();
    AddHeading("Films", Grouped(static_cast<int64_t>(films.total)), main);
    if (films.total == 0) {
        main << NothingNote(visit, "There are no films in the library yet.",
                            "Once there are some on the share, \"koliindexctl add FOLDER\" has the daemon "
                            "look at them.");
    } else {
        main << "<ul class=\"grid wide\" id=\"list\">";
        for (const FilmRow& film : films.rows)
            AddFilmCard(film, main);
        main << "</ul>";
        AddMore(span, films.total, Address("/films"), main);
    }
    return PageReply(visit.Head("Films", Area::kFilms), main);
}

}  // namespace koli::serve
