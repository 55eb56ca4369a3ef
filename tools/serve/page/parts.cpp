#include "tools/serve/page/parts.h"

#include <algorithm>

#include "base/text/utf8.h"
#include "tools/ctl/output.h"
#include "tools/serve/page/media_types.h"
#include "tools/serve/page/values.h"

namespace koli::serve {
namespace {

constexpr int kTones = 8;  // of the style's

/// The same for a name at any time.
int ToneOf(std::string_view name) {
    uint32_t hash = 2166136261U;
    for (const char c : name)
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
    return static_cast<int>(hash % kTones);
}

std::string_view FirstLetter(std::string_view name) {
    const size_t length = Utf8Length(name);
    return name.substr(0, length);
}

void AddTurn(const Address& address, Literal rel, const char* name, Markup& to) {
    to << "<a class=\"button\" rel=\"" << rel << "\"";
    to.Link("href", address) << ">";
    to.Text(name) << "</a>";
}

}  // namespace

Address SmallAddress(std::string_view path, bool is_cover, int side) {
    return (is_cover ? Address("/cover") : Address("/small")).Number(side).Path(path);
}

Address FileAddress(std::string_view path) {
    return Address("/file").Path(path);
}

Address EntryAddress(std::string_view path) {
    return Address("/entry").Path(path);
}

Address AlbumAddress(const AlbumKey& key) {
    Address address("/music/album");
    key.artist.empty() ? address.Path(kNoWord) : address.Word(key.artist);
    return address.Word(key.title);
}

void AddArt(const Art& art, Markup& to) {
    to << "<span class=\"art tone" << ToneOf(art.name) << "\"><span aria-hidden=\"true\">";
    to.Text(FirstLetter(art.name)) << "</span>";
    if (!art.path.empty()) {
        to << "<img alt=\"\" loading=\"lazy\" decoding=\"async\"";
        to.Attribute("width", art.side).Attribute("height", art.side);
        to.Link("src", SmallAddress(art.path, art.is_cover, art.side)) << ">";
    }
    to << "</span>";
}

void AddCard(const Card& card, Markup& to) {
    to << "<li><a class=\"card\"";
    to.Link("href", card.address).Attribute("title", card.name) << ">";
    AddArt(card.art, to);
    to << "<span class=\"name\" dir=\"auto\">";
    to.Name(card.name) << "</span>";
    if (!card.sub.empty()) to << "<span class=\"sub\" dir=\"auto\">", to.Name(card.sub) << "</span>";
    to << "</a></li>";
}

std::string ArtistText(const AlbumRow& album) {
    if (!album.key.artist.empty()) return album.key.artist;
    return album.is_of_several ? "Several artists" : "Unknown artist";
}

std::string AlbumTitle(const AlbumKey& key) {
    return key.title.empty() ? "Songs of no album" : key.title;
}

void AddAlbumCard(const AlbumRow& album, Markup& to) {
    const std::string title = AlbumTitle(album.key), artist = ArtistText(album);
    const Art art{
        .name = title, .path = album.has_cover ? album.cover : std::string_view(), .is_cover = true};
    AddCard({AlbumAddress(album.key), art, title, artist}, to);
}

void AddFilmCard(const FilmRow& film, Markup& to) {
    const Art art{
        .name = film.title, .path = film.has_cover ? film.path : std::string_view(), .is_cover = true};
    const std::string_view name = film.path, extension = name.substr(name.rfind('.') + 1);
    AddCard({EntryAddress(film.path), art, film.title,
             Joined({film.year > 0 ? std::to_string(film.year) : "", PlayingTime(film.seconds),
                     film.bytes > 0 ? ctl::SizeText(film.bytes) : "", std::string(extension)})},
            to);
}

void AddPhotoAlbumCard(const PhotoAlbumRow& album, Markup& to, std::string_view parent) {
    const Address address = Address("/photos/album").Path(album.name);
    const char* const who = !album.is_enabled ? "switched off"
                            : album.is_public ? "for everybody"
                                              : "for some users";
    const size_t slash = album.name.rfind('/');
    const std::string holder = slash == std::string::npos ? "" : album.name.substr(0, slash);
    const std::string place = holder == parent ? "" : "in " + holder;
    AddCard({address,
             {.name = album.title, .path = album.cover},
             album.title,
             Joined({GroupedCount(static_cast<int64_t>(album.pictures), "picture"), who, place})},
            to);
}

void AddPlaylistCard(const PlaylistRow& list, Markup& to) {
    AddCard({Address("/playlist").Path(list.path), {.name = list.title}, list.title, {}}, to);
}

void AddTile(const PictureRow& picture, const Address& address, Markup& to) {
    to << "<li><a";
    to.Link("href", address).Attribute("title", picture.title).Attribute("aria-label", picture.title) << ">";
    AddArt({.name = picture.title, .path = picture.path}, to);
    to << "</a></li>";
}

void AddSong(const SongRow& song, const std::string& number, Markup& to, std::string_view artist) {
    const std::string spoken = Joined({song.title, song.artist});
    to << "<li>";
    if (TypeOf(song.path).plays) {
        to << "<a class=\"play\"";
        to.Link("href", FileAddress(song.path)).Attribute("data-play", spoken);
        to.Attribute("aria-label", (number.empty() ? "Play " : number + ": play ") + song.title) << ">";
        if (!number.empty()) to << "<span>", to.Text(number) << "</span>";
        to << "</a>";
    } else {
        to << "<span class=\"play\">", to.Text(number) << "</span>";
    }
    to << "<div><a class=\"name\" dir=\"auto\"";
    to.Link("href", EntryAddress(song.path)) << ">";
    to.Name(song.title) << "</a>";
    if (!song.artist.empty() && song.artist != artist)
        to << "<span class=\"sub\" dir=\"auto\">", to.Name(song.artist) << "</span>";
    to << "</div><span class=\"count\">";
    to.Text(PlayingTime(song.seconds)) << "</span></li>";
}

void AddPlayAll(Markup& to) {
    to << "<p class=\"row\"><button class=\"main\" data-play-all hidden>Play</button>"
          "<button data-play-all=\"shuffled\" hidden>Shuffle</button></p>";
}

void AddTurns(const Visit& visit, FileKind kind, const std::string& path, Markup& to) {
    const bool is_by_date = kind == FileKind::kPicture && !visit.is_kept && visit.Value("in") == kByDate;
    const Neighbours near = visit.library.Beside(kind, path, is_by_date ? ListOf::kMonth : ListOf::kAlbum);
    if (near.total < 2) return;
    const auto address = [is_by_date](const std::string& other) {
        return is_by_date ? EntryAddress(other).Query("in", kByDate) : EntryAddress(other);
    };
    to << "<nav class=\"turn\" aria-label=\"Previous and next\"><span>";
    if (!near.before.empty()) AddTurn(address(near.before), "prev", "Previous", to);
    to << "</span><span class=\"muted\">";
    to.Text(Grouped(static_cast<int64_t>(near.at + 1)) + " of " + Grouped(static_cast<int64_t>(near.total)))
        << "</span><span>";
    if (!near.behind.empty()) AddTurn(address(near.behind), "next", "Next", to);
    to << "</span></nav>";
}

void AddNamed(const Address& address, std::string_view name, const std::string& count, Markup& to) {
    to << "<li><a";
    to.Link("href", address).Attribute("title", name) << "><span dir=\"auto\">";
    to.Name(name) << "</span><span class=\"count\">";
    to.Text(count) << "</span></a></li>";
}

void AddMore(Span span, size_t total, const Address& list, Markup& to) {
    const size_t next = span.from + span.count;
    if (span.from > 0) {
        to << "<p><a";
        to.Link("href", list) << ">From the beginning</a></p>";
    }
    if (next >= total) return;
    to << "<a class=\"more button\"";
    to.Link("href", Address(list).Query("from", std::to_string(next))) << ">";
    to.Text("More (" + Grouped(static_cast<int64_t>(total - next)) + ")") << "</a>";
}

void AddFolderTrail(const std::string& path, Markup& to) {
    to << "<nav aria-label=\"Where it lies\"><ol class=\"trail\">";
    for (size_t begin = 1, end = path.find('/', 1); end != std::string::npos; end = path.find('/', begin)) {
        to << "<li><a";
        to.Link("href", Address("/folder").Path(std::string_view(path).substr(0, end))) << ">";
        to.Name(std::string_view(path).substr(begin, end - begin)) << "</a></li>";
        begin = end + 1;
    }
    to << "</ol></nav>";
}

Markup AwayNote(const std::string& folder) {
    return NoteOf(
        folder + " is not there now: it may not be mounted.",
        "What is stored of it is shown all the same, but no file of it can be opened until it is back.");
}

void AddHeading(std::string_view text, const std::string& count, Markup& to) {
    to << "<div class=\"head\"><h1 dir=\"auto\">";
    to.Name(text) << "</h1>";
    if (!count.empty()) to << "<p class=\"muted\">", to.Text(count) << "</p>";
    to << "</div>";
}

}  // namespace koli::serve
