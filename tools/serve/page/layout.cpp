#include "tools/serve/page/layout.h"

#include <cstring>

#include "tools/serve/page/assets.h"

namespace koli::serve {
namespace {

struct Place {
    Area area;
    Literal address;
    const char* name;
};

constexpr char kLibrary[] = "Media library";

constexpr Place kPlaces[] = {
    {Area::kMusic, "/music/albums", "Music"},    {Area::kFilms, "/films", "Films"},
    {Area::kPhotos, "/photos/albums", "Photos"}, {Area::kPlaylists, "/playlists", "Playlists"},
    {Area::kProblems, "/problems", "Problems"},  {Area::kStatus, "/status", "Status"}};

constexpr Place kTabs[] = {
    {Area::kMusic, "/music/albums", "Albums"},   {Area::kMusic, "/music/artists", "Artists"},
    {Area::kMusic, "/music/genres", "Genres"},   {Area::kMusic, "/music/years", "Years"},
    {Area::kPhotos, "/photos/albums", "Albums"}, {Area::kPhotos, "/photos/dates", "Dates"}};

enum class Current { kNo, kPage, kPart };

void AddLink(const Place& place, Current current, Markup& page) {
    page << "<li><a";
    page.Link("href", Address(place.address));
    if (current == Current::kPage) page << " aria-current=\"page\"";
    if (current == Current::kPart) page << " aria-current=\"true\"";
    page << ">";
    page.Text(place.name) << "</a></li>";
}

void AddHead(const PageHead& head, Markup& page) {
    page << "<!doctype html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
            "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
            "<meta name=\"color-scheme\" content=\"light dark\"><title>";
    if (!head.title.empty()) page.Text(head.title) << " \xE2\x80\x93 ";
    page << kLibrary << "</title><link rel=\"stylesheet\"";
    page.Link("href", AddressOf(StyleAsset())) << "><link rel=\"icon\"";
    page.Link("href", AddressOf(IconAsset())) << "><script defer";
    page.Link("src", AddressOf(ScriptAsset())) << "></script></head>\n<body>";
}

void AddSearch(const PageHead& head, Markup& page) {
    page
        << "<form class=\"search\" role=\"search\" action=\"/search\"><label class=\"away\" for=\"q\">Search the "
           "library</label><input id=\"q\" name=\"q\" type=\"search\" placeholder=\"Search\" autocomplete=\"off\" "
           "dir=\"auto\" maxlength=\"200\"";
    page.Attribute("value", head.searched) << "><button>Search</button></form>";
}

void AddTop(const PageHead& head, Markup& page) {
    page << "<a class=\"skip\" href=\"#main\">To the content</a><header class=\"top\"><a class=\"brand\"";
    page.Link("href", Address("/")) << "><img width=\"24\" height=\"24\" alt=\"\"";
    page.Link("src", AddressOf(IconAsset())) << ">" << kLibrary << "</a>";
    if (!head.is_bare) {
        page << "<nav aria-label=\"Library\"><ul>";
        for (const Place& place : kPlaces)
            AddLink(place,
                    place.area != head.area ? Current::kNo
                    : head.tab != nullptr   ? Current::kPart
                                            : Current::kPage,
                    page);
        page << "</ul></nav>";
        if (!head.is_kept) AddSearch(head, page);
    }
    page << "</header>\n<main id=\"main\" tabindex=\"-1\">";
}

void AddTabs(const PageHead& head, Markup& page) {
    if (head.tab == nullptr) return;
    page << "<nav class=\"tabs\" aria-label=\"View\"><ul>";
    for (const Place& place : kTabs)
        if (place.area == head.area)
            AddLink(place, strcmp(place.name, head.tab) == 0 ? Current::kPage : Current::kNo, page);
    page << "</ul></nav>";
}

void AddTrouble(const PageHead& head, Markup& page) {
    if (!head.trouble.empty())
        page << NoteOf(
            "Not everything can be shown: " + head.trouble,
            "Once that is mended, load the page again. On the machine itself \"koliindexctl status\" "
            "tells more.");
}

void AddFoot(const PageHead& head, Markup& page) {
    page << "</main>\n<p id=\"said\" class=\"away\" aria-live=\"polite\"></p>";
    if (!head.is_bare) {
        page << "<section id=\"player\" class=\"player\" aria-label=\"Player\" hidden>"
                "<button data-step=\"-1\" aria-label=\"Previous song\">&laquo;</button>"
                "<button data-step=\"1\" aria-label=\"Next song\">&raquo;</button>"
                "<p dir=\"auto\"></p><audio controls preload=\"none\"></audio></section>"
                "<footer class=\"foot\"><a";
        page.Link("href", Address("/folder"))
            << ">All folders</a><span>Nothing here changes the library.</span></footer>";
    }
    page << "</body></html>\n";
}

}  // namespace

std::string TitleOf(std::initializer_list<std::string> parts) {
    std::string title;
    for (const std::string& part : parts)
        if (!part.empty()) title += (title.empty() ? "" : " \xE2\x80\x93 ") + part;
    return title;
}

Reply PageReply(const PageHead& head, const Markup& main) {
    Markup page(main.writer());
    AddHead(head, page);
    AddTop(head, page);
    AddTabs(head, page);
    AddTrouble(head, page);
    page << main;
    AddFoot(head, page);
    return {.body = page.Take()};
}

Markup NoteOf(std::string_view sentence, std::string_view advice) {
    Markup note;
    note << "<div class=\"note\"><p>";
    note.Text(sentence) << "</p>";
    if (!advice.empty()) note << "<p class=\"muted\">", note.Text(advice) << "</p>";
    return note << "</div>", note;
}

}  // namespace koli::serve
