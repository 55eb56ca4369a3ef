// One file or folder: everything that is stored for it.
#include "base/path_names.h"
#include "platform/host/tables.h"
#include "tools/ctl/output.h"
#include "tools/serve/page/fields.h"
#include "tools/serve/page/media_types.h"
#include "tools/serve/page/pages.h"
#include "tools/serve/page/parts.h"
#include "tools/serve/page/picture_parts.h"
#include "tools/serve/page/values.h"

namespace koli::serve {
namespace {

void AddFileLink(const std::string& path, Markup& main) {
    main << "<p class=\"row\"><a class=\"button\"";
    main.Link("href", FileAddress(path)) << " download>Download</a></p>";
}

void AddWordLink(const char* before, const Address& address, std::string_view name, Markup& main) {
    if (name.empty()) return;
    main << "<p dir=\"auto\">";
    main.Text(before) << "<a";
    main.Link("href", address) << ">";
    main.Name(name) << "</a></p>";
}

void AddFacts(const std::string& facts, Markup& main) {
    if (!facts.empty()) main << "<p class=\"muted\">", main.Text(facts) << "</p>";
}

std::string SizeOf(const FileRow& file) {
    return file.bytes > 0 ? ctl::SizeText(file.bytes) : "";
}

std::string YearText(int64_t year) {
    return year > 0 ? std::to_string(year) : "";
}

/// Why what is in a file could not be read; "" = it was.
std::string ProblemOf(const std::vector<ctl::Section>& sections) {
    for (const ctl::Section& section : sections)
        for (const ctl::Record& record : section.records)
            for (const auto& [name, field] : record)
                if (section.name == host::kProblemTable && name == "reason") return field.text;
    return "";
}

void AddProblem(const std::string& problem, Markup& main) {
    if (!problem.empty()) main << NoteOf("What is in it could not be read.", Begun(problem));
}

void AddSound(const Visit& visit, const SongRow& song, const std::string& problem, Markup& main) {
    main << "<div class=\"album\">";
    AddArt({.name = song.title,
            .path = song.has_cover ? song.path : std::string_view(),
            .is_cover = true,
            .side = 640},
           main);
    main << "<div class=\"block\">";
    AddHeading(song.title, PlayingTime(song.seconds), main);
    AddWordLink("", Address("/music/artist").Word(song.artist), song.artist, main);
    if (AlbumKey album; visit.library.AlbumOfSong(song.path, &album))
        AddWordLink("On ", AlbumAddress(album), song.album, main);
    AddWordLink("Genre: ", Address("/music/genre").Word(song.genre), song.genre, main);
    AddFacts(Joined({YearText(song.year), SizeOf(song)}), main);
    AddProblem(problem, main);
    if (TypeOf(song.path).plays) {
        main << "<audio controls preload=\"none\"";
        main.Link("src", FileAddress(song.path)).Attribute("aria-label", song.title) << "></audio>";
    } else {
        main << "<p class=\"muted\">Browsers cannot play this kind of file.</p>";
    }
    AddFileLink(song.path, main);
    main << "</div></div>";
    AddTurns(visit, FileKind::kSong, song.path, main);
}

void AddFilm(const Visit& visit, const FilmRow& film, const std::string& problem, Markup& main) {
    AddHeading(film.title, PlayingTime(film.seconds), main);
    AddFacts(Joined({YearText(film.year), PixelsText(film.width, film.height), SizeOf(film)}), main);
    AddProblem(problem, main);
    if (TypeOf(film.path).plays) {
        main << "<video class=\"film\" controls";
        main.Attribute("preload", problem.empty() ? "metadata" : "none");
        main.Link("src", FileAddress(film.path)).Attribute("aria-label", film.title);
        if (film.has_cover) main.Link("poster", SmallAddress(film.path, true, 640));
        main << "></video><p class=\"muted small\">Not every browser knows every kind of film.</p>";
    } else {
        main << "<div class=\"grid wide\">";
        AddArt({.name = film.title,
                .path = film.has_cover ? film.path : std::string_view(),
                .is_cover = true,
                .side = 640},
               main);
        main << "</div>"
             << NoteOf("Browsers cannot play this kind of film.",
                       "Another program can, once it is downloaded.");
    }
    if (!film.description.empty()) main << "<p dir=\"auto\">", main.Name(film.description) << "</p>";
    AddFileLink(film.path, main);
    AddTurns(visit, FileKind::kFilm, film.path, main);
}

void AddPicturePart(const Visit& visit, const PictureRow& picture, const std::string& problem, Markup& main) {
    AddHeading(picture.title, "", main);
    AddProblem(problem, main);
    AddPicture(picture, main);
    AddTurns(visit, FileKind::kPicture, picture.path, main);
    main << "<p class=\"row\"><span class=\"muted\">";
    main.Name(
        Joined({picture.taken, picture.camera, PixelsText(picture.width, picture.height), SizeOf(picture)}))
        << "</span>";
    if (!picture.album.empty()) {
        main << "<a class=\"button\"";
        main.Link("href", Address("/photos/album").Path(picture.album)) << ">Its album</a>";
    }
    if (picture.taken.size() >= kMonthLength) {
        const std::string month = picture.taken.substr(0, kMonthLength);
        main << "<a class=\"button\"";
        main.Link("href", Address("/photos/date").Word(month)) << ">", main.Text(MonthName(month)) << "</a>";
    }
    main << "<a class=\"button\"";
    main.Link("href", FileAddress(picture.path)) << ">The file itself</a></p>";
}

/// A playlist, or a folder.
void AddOther(const std::string& path, bool is_list, Markup& main) {
    AddHeading(FileNameOf(path.c_str()), "", main);
    main << "<p class=\"row\"><a class=\"button\"";
    main.Link("href", (is_list ? Address("/playlist") : Address("/folder")).Path(path)) << ">";
    main.Text(is_list ? "What it names" : "What is in it") << "</a></p>";
}

/// What is shown for an entry, above what is stored of it.
struct Shown {
    Area area = Area::kNone;
    std::string title = {};  // of the window
};

Shown AddShown(const Visit& visit, const std::string& path, const EntryView& entry, Markup& main) {
    SongRow song;
    FilmRow film;
    PictureRow picture;
    const std::string problem = ProblemOf(entry.sections);
    if (entry.is_file && entry.kind == FileKind::kSong && visit.library.Song(path, &song)) {
        AddSound(visit, song, problem, main);
        return {Area::kMusic, TitleOf({song.title, song.artist, FileNameOf(path.c_str())})};
    }
    if (entry.is_file && entry.kind == FileKind::kFilm && visit.library.Film(path, &film)) {
        AddFilm(visit, film, problem, main);
        return {Area::kFilms, TitleOf({film.title, FileNameOf(path.c_str())})};
    }
    if (entry.is_file && entry.kind == FileKind::kPicture && visit.library.Picture(path, &picture)) {
        AddPicturePart(visit, picture, problem, main);
        return {Area::kPhotos, TitleOf({picture.title, picture.album, FileNameOf(path.c_str())})};
    }
    const bool is_list = entry.is_file && entry.kind == FileKind::kPlaylist;
    AddOther(path, is_list, main);
    return {is_list ? Area::kPlaylists : Area::kNone,
            TitleOf({FileNameOf(path.c_str()), is_list ? "Entry of a playlist" : "Entry of a folder"})};
}

/// What keeps the entry from being what is on the disk, and what waits for it.
void AddReasons(const ctl::Reasons& reasons, Markup& main) {
    if (reasons.empty()) return;
    main << "<div class=\"note\"><p class=\"state\">It is not stored as it is now</p><ul class=\"list\">";
    for (const ctl::Reason& reason : reasons) {
        main << "<li>";
        main.Text(Begun(reason.text)) << ".</li>";
    }
    main << "</ul></div>";
}

}  // namespace

Reply EntryPage(const Visit& visit) {
    const std::string path = PathOf(visit.request.path, 1);
    const EntryView entry = path.empty() ? EntryView{} : visit.library.Entry(path);
    if (entry.sections.empty()) return MissingPage(visit);
    Markup main = visit.NewMarkup();
    AddFolderTrail(path, main);
    const Shown shown = AddShown(visit, path, entry, main);
    if (entry.is_file) AddReasons(visit.library.WhyNotInStep(path), main);
    AddSections(entry.sections, main);
    return PageReply(visit.Head(shown.title, shown.area), main);
}

}  // namespace koli::serve
