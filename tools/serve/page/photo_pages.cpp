// Pictures by album and by month.
#include "tools/serve/page/pages.h"
#include "tools/serve/page/parts.h"
#include "tools/serve/page/picture_parts.h"
#include "tools/serve/page/values.h"

namespace koli::serve {
namespace {

constexpr size_t kAlbums = 60, kPictures = 120, kMonths = 120;

constexpr char kNoPictures[] = "There are no pictures in the library yet.";
constexpr char kAddPictures[] =
    "Albums are the folders of the photo share. Without one, there are none; once there are pictures on it, "
    "\"koliindexctl add FOLDER\" has the daemon look at them.";

std::string NamesOf(const std::vector<int64_t>& users) {
    constexpr size_t kNamed = 20;
    std::string text;
    for (size_t i = 0; i < users.size() && i < kNamed; ++i)
        text += (i == 0 ? "" : ", ") + Library::UserName(users[i]);
    if (users.size() > kNamed)
        text += " and " + Grouped(static_cast<int64_t>(users.size() - kNamed)) + " more";
    return text;
}

/// Who may see an album.
std::string RightsText(const PhotoAlbumRow& album) {
    if (!album.is_enabled) return "Nobody may see it: it is switched off";
    if (album.is_public) return "Everybody may see it";
    if (album.users.empty()) return "Only some users may see it, but none is chosen";
    return "Only these users may see it: " + NamesOf(album.users);
}

/// The folders that an album lies in, as links.
void AddTrail(const std::string& name, Markup& main) {
    main << "<nav aria-label=\"Where it lies\"><ol class=\"trail\"><li><a";
    main.Link("href", Address("/photos/albums")) << ">Albums</a></li>";
    for (size_t end = name.find('/'), begin = 0; end != std::string::npos; end = name.find('/', begin)) {
        main << "<li><a";
        main.Link("href", Address("/photos/album").Path(std::string_view(name).substr(0, end))) << ">";
        main.Name(std::string_view(name).substr(begin, end - begin)) << "</a></li>";
        begin = end + 1;
    }
    main << "</ol></nav>";
}

/// Without `parent` it is the list of the page, which goes on in pieces.
void AddAlbumGrid(const Piece<PhotoAlbumRow>& albums, const std::string& parent, Markup& main) {
    if (parent.empty())
        main << "<ul class=\"grid\" id=\"list\">";
    else
        main << "<ul class=\"grid\">";
    for (const PhotoAlbumRow& album : albums.rows)
        AddPhotoAlbumCard(album, main, parent);
    main << "</ul>";
}

}  // namespace

Reply PhotoAlbumsPage(const Visit& visit) {
    const Span span = visit.Piece(kAlbums);
    const auto albums = visit.library.PhotoAlbums(span);
    Markup main = visit.NewMarkup();
    AddHeading("Photo albums", Grouped(static_cast<int64_t>(albums.total)), main);
    if (albums.total == 0) {
        main << EmptyNote(visit, "There are no photo albums yet.", kAddPictures);
    } else {
        AddAlbumGrid(albums, "", main);
        AddMore(span, albums.total, Address("/photos/albums"), main);
    }
    return PageReply(visit.Head(TitleOf({"Photo albums", FromText(span)}), Area::kPhotos, "Albums"), main);
}

Reply PhotoAlbumPage(const Visit& visit) {
    constexpr size_t kAlbumsIn = 500;
    const std::string path = PathOf(visit.request.path, 2);
    const std::string name = path.substr(path.empty() ? 0 : 1);
    PhotoAlbumRow album;
    if (name.empty() || !visit.library.PhotoAlbum(name, &album)) return MissingPage(visit);
    const Span span = visit.Piece(kPictures);
    const auto pictures = visit.library.PicturesIn(name, span);
    const auto albums = visit.library.AlbumsIn(name, {0, kAlbumsIn});
    Markup main = visit.NewMarkup();
    AddTrail(name, main);
    AddHeading(album.title, GroupedCount(static_cast<int64_t>(pictures.total), "picture"), main);
    if (!album.description.empty()) main << "<p dir=\"auto\">", main.Name(album.description) << "</p>";
    main << "<p class=\"muted\" dir=\"auto\">";
    main.Name(RightsText(album)) << "</p>";
    if (!albums.rows.empty()) {
        main << "<h2>Albums in it</h2>";
        AddAlbumGrid(albums, name, main);
        if (!pictures.rows.empty()) main << "<h2>Pictures</h2>";
    }
    AddPictureGrid(visit, pictures, false, main);
    AddMore(span, pictures.total, Address("/photos/album").Path(name), main);
    const std::string in = name == album.title ? "" : name;
    const std::string window = TitleOf({album.title, in, "Photo album", FromText(span)});
    return PageReply(visit.Head(window, Area::kPhotos, "Albums"), main);
}

Reply PhotoDatesPage(const Visit& visit) {
    const Span span = visit.Piece(kMonths);
    const auto months = visit.library.Months(span);
    Markup main = visit.NewMarkup();
    AddHeading("Pictures by date", "", main);
    if (months.total == 0) {
        main << EmptyNote(visit, kNoPictures, kAddPictures);
    } else {
        main << "<ul class=\"grid\" id=\"list\">";
        for (const NamedRow& month : months.rows)
            AddCard({Address("/photos/date").Word(month.name),
                     {.name = month.name, .path = month.cover},
                     MonthName(month.name),
                     GroupedCount(static_cast<int64_t>(month.count), "picture")},
                    main);
        main << "</ul>";
        AddMore(span, months.total, Address("/photos/dates"), main);
    }
    return PageReply(visit.Head(TitleOf({"Pictures by date", FromText(span)}), Area::kPhotos, "Dates"), main);
}

Reply PhotoDatePage(const Visit& visit) {
    const auto month = visit.WordAt(2);
    const Span span = visit.Piece(kPictures);
    const auto pictures = visit.library.PicturesOfMonth(month.value_or("-"), span);
    if (pictures.total == 0) return MissingPage(visit);
    const std::string title = MonthName(*month);
    Markup main = visit.NewMarkup();
    AddHeading(title, GroupedCount(static_cast<int64_t>(pictures.total), "picture"), main);
    AddPictureGrid(visit, pictures, true, main);
    AddMore(span, pictures.total, Address("/photos/date").Word(*month), main);
    return PageReply(visit.Head(TitleOf({title, "Pictures", FromText(span)}), Area::kPhotos, "Dates"), main);
}

}  // namespace koli::serve
