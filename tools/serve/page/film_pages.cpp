// All films.
#include "tools/serve/page/pages.h"
#include "tools/serve/page/parts.h"
#include "tools/serve/page/values.h"

namespace koli::serve {

namespace {

constexpr char kNewest[] = "newest";

Address FilmsAddress(bool is_newest) {
    const Address films("/films");
    return is_newest ? Address(films).Query("order", kNewest) : films;
}

void AddOrder(bool is_newest, bool is_current, Markup& main) {
    main << "<li><a";
    main.Link("href", FilmsAddress(is_newest));
    if (is_current) main << " aria-current=\"true\"";
    main << ">";
    main.Text(is_newest ? "Newest" : "Title") << "</a></li>";
}

}  // namespace

Reply FilmsPage(const Visit& visit) {
    constexpr size_t kFilms = 48;
    const Span span = visit.Piece(kFilms);
    const bool is_newest = visit.Value("order") == kNewest;
    const auto films = visit.library.Films(is_newest ? FileOrder::kNewest : FileOrder::kTitle, span);
    Markup main = visit.NewMarkup();
    AddHeading("Films", Grouped(static_cast<int64_t>(films.total)), main);
    if (films.total == 0) {
        main << EmptyNote(visit, "There are no films in the library yet.",
                          "Once there are some on the share, \"koliindexctl add FOLDER\" has the daemon "
                          "look at them.");
    } else {
        main << "<nav class=\"tabs\" aria-label=\"Order\"><ul>";
        AddOrder(false, !is_newest, main);
        AddOrder(true, is_newest, main);
        main << "</ul></nav><ul class=\"grid wide\" id=\"list\">";
        for (const FilmRow& film : films.rows)
            AddFilmCard(film, main);
        main << "</ul>";
        AddMore(span, films.total, FilmsAddress(is_newest), main);
    }
    const std::string window = TitleOf({"Films", is_newest ? "newest first" : "", FromText(span)});
    return PageReply(visit.Head(window, Area::kFilms), main);
}

}  // namespace koli::serve
