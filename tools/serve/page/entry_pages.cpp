// One file or folder: everything that is stored for it.
#include "tools/serve/page/fields.h"
#include "tools/serve/page/media_types.h"
#include "tools/serve/page/pages.h"
#include "tools/serve/page/parts.h"
#include "tools/serve/page/picture_parts.h"
#include "tools/serve/page/values.h"

namespace koli::serve {
namespace {

/// The folders on the way to a path, as links.
void AddTrail(const std::string& path, Markup& main) {
    main << "<nav aria-label=\"Where it lies\"><ol class=\"trail\">";
    for (size_t begin = 1, end = path.find('/', 1); end != std::string::npos; end = path.find('/', begin)) {
        main << "<li><a";
        main.Link("href", Address("/folder").Path(std::string_view(path).substr(0, end))) << ">";
        main.Name(std::string_view(path).substr(begin, end - begin)) << "</a></li>";
        begin = end + 1;
    }
    main << "</ol></nav>";
}

std::string_view LastName(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

void AddFileLink(const std::string& path, Markup& main) {
    main << "<p class=\"row\"><a class=\"button\"";
    main.Link("href", FileAddress(path)) << " download>Download</a></p>";
}

void AddSound(const Visit& visit, const SongRow& song, Markup& main) {
    main << "<div class=\"album\">";
    AddArt({.name = song.title,
            .path = song.has_cover ? song.path : std::string_view(),
            .is_cover = true,
            .side = 640},
           main);
    main << "<div class=\"block\">";
    AddHeading(song.title, PlayingTime(song.seconds), main);
    if (!song.artist.empty()) {
        main << "<p dir=\"auto\"><a";
        main.Link("href", Address("/music/artist").Word(song.artist)) << ">";
        main.Name(song.artist) << "</a></p>";
    }
    AlbumRow album;
    const AlbumKey own{song.artist, song.album}, shared{"", song.album};
    if (!song.album.empty() && (visit.library.Album(own, &album) || visit.library.Album(shared, &album))) {
        main << "<p dir=\"auto\">On <a";
        main.Link("href", AlbumAddress(album.key)) << ">";
        main.Name(song.album) << "</a></p>";
    }
    if (TypeOf(song.path).plays) {
        main << "<audio controls preload=\"none\"";
        main.Link("src", FileAddress(song.path)).Attribute("aria-label", song.title) << "></audio>";
    } else {
        main << "<p class=\"muted\">Browsers cannot play this kind of file.</p>";
    }
    AddFileLink(song.path, main);
    main << "</div></div>";
}

void AddFilm(const FilmRow& film, Markup& main) {
    AddHeading(film.title, PlayingTime(film.seconds), main);
    if (TypeOf(film.path).plays) {
        main << "<video class=\"film\" controls preload=\"metadata\"";
        main.Link("src", FileAddress(film.path)).Attribute("aria-label", film.title);
        if (film.has_cover) main.Link("poster", SmallAddress(film.path, true, 640));
        main << "></video><p class=\"muted small\">Not every browser knows every kind of film.</p>";
    } else {
        main << NoteOf("Browsers cannot play this kind of film.",
                       "Another program can, once it is downloaded.");
    }
    if (!film.description.empty()) main << "<p dir=\"auto\">", main.Name(film.description) << "</p>";
    AddFileLink(film.path, main);
}

void AddPicturePart(const Visit& visit, const PictureRow& picture, Markup& main) {
    AddHeading(picture.title, "", main);
    AddPicture(visit, picture, main);
    main << "<p class=\"row\">";
    if (!picture.album.empty()) {
        main << "<a class=\"button\"";
        main.Link("href", Address("/photos/album").Path(picture.album)) << ">Its album</a>";
    }
    if (picture.taken.size() >= 7) {
        const std::string month = picture.taken.substr(0, 7);
        main << "<a class=\"button\"";
        main.Link("href", Address("/photos/date").Word(month)) << ">", main.Text(MonthText(month)) << "</a>";
    }
    main << "<a class=\"button\"";
    main.Link("href", FileAddress(picture.path)) << ">The file itself</a></p>";
}

Area AddShown(const Visit& visit, const std::string& path, const EntryView& entry, Markup& main) {
    SongRow song;
    FilmRow film;
    PictureRow picture;
    if (entry.is_file && entry.kind == FileKind::kSong && visit.library.Song(path, &song))
        return AddSound(visit, song, main), Area::kMusic;
    if (entry.is_file && entry.kind == FileKind::kFilm && visit.library.Film(path, &film))
        return AddFilm(film, main), Area::kFilms;
    if (entry.is_file && entry.kind == FileKind::kPicture && visit.library.Picture(path, &picture))
        return AddPicturePart(visit, picture, main), Area::kPhotos;
    AddHeading(LastName(path), "", main);
    const bool is_list = entry.is_file && entry.kind == FileKind::kPlaylist;
    main << "<p class=\"row\"><a class=\"button\"";
    main.Link("href", (is_list ? Address("/playlist") : Address("/folder")).Path(path)) << ">";
    main.Text(is_list ? "What it names" : "What is in it") << "</a></p>";
    return is_list ? Area::kPlaylists : Area::kNone;
}

}  // namespace

Reply EntryPage(const Visit& visit) {
    const std::string path = PathOf(visit.request.path, 1);
    const EntryView entry = path.empty() ? EntryView{} : visit.library.Entry(path);
    if (entry.sections.empty()) return MissingPage(visit);
    Markup main = visit.NewMarkup();
    AddTrail(path, main);
    const Area area = AddShown(visit, path, entry, main);
    if (const ctl::StatusLook look = visit.library.Live(); look.IsAtWork() && path == look.report.path)
        main << "<p class=\"state\">The daemon reads it at this moment.</p>";
    AddSections(entry.sections, main);
    return PageReply(visit.Head(std::string(LastName(path)), area), main);
}

Reply FolderPage(const Visit& visit) {
    constexpr size_t kEntries = 300;
    const std::string path = PathOf(visit.request.path, 1);
    const Span span = visit.Piece(kEntries);
    const auto entries = visit.library.Folder(path.empty() ? "/" : path, span);
    if (entries.total == 0) return MissingPage(visit);
    Markup main = visit.NewMarkup();
    AddTrail(path, main);
    AddHeading(path.empty() ? "Shares" : LastName(path), Grouped(static_cast<int64_t>(entries.total)), main);
    main << "<ul class=\"names\" id=\"list\">";
    for (const FolderEntry& entry : entries.rows) {
        static constexpr const char* kKinds[] = {"song", "film", "picture", "playlist"};
        AddNamed(entry.is_folder ? Address("/folder").Path(entry.path) : EntryAddress(entry.path),
                 LastName(entry.path), entry.is_folder ? "folder" : kKinds[static_cast<size_t>(entry.kind)],
                 main);
    }
    main << "</ul>";
    AddMore(span, entries.total, Address("/folder").Path(path), main);
    return PageReply(visit.Head(std::string(LastName(path)), Area::kNone), main);
}

}  // namespace koli::serve
