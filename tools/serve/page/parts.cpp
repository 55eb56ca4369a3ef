#include "tools/serve/page/parts.h"

#include <algorithm>

#include "base/text/utf8.h"
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

std::string Joined(const std::string& one, const std::string& other) {
    return one.empty() || other.empty() ? one + other : one + " \xC2\xB7 " + other;
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
    const std::string year = film.year > 0 ? std::to_string(film.year) : "";
    AddCard({EntryAddress(film.path), art, film.title, Joined(year, PlayingTime(film.seconds))}, to);
}

void AddPhotoAlbumCard(const PhotoAlbumRow& album, Markup& to) {
    const Address address = Address("/photos/album").Path(album.name);
    const char* const who = !album.is_enabled ? "switched off"
                            : album.is_public ? "for everybody"
                                              : "for some";
    AddCard({address,
             {.name = album.title, .path = album.cover},
             album.title,
             Joined(GroupedCount(static_cast<int64_t>(album.pictures), "picture"), who)},
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

void AddSong(const SongRow& song, const std::string& number, Markup& to) {
    const std::string spoken = Joined(song.title, song.artist);
    to << "<li>";
    if (TypeOf(song.path).plays) {
        to << "<a class=\"play\"";
        to.Link("href", FileAddress(song.path)).Attribute("data-play", spoken);
        to.Attribute("aria-label", "Play " + song.title) << "><span>";
        to.Text(number.empty() ? "\xE2\x96\xB6\xEF\xB8\x8E" : number) << "</span></a>";
    } else {
        to << "<span class=\"play\">", to.Text(number) << "</span>";
    }
    to << "<div><a class=\"name\" dir=\"auto\"";
    to.Link("href", EntryAddress(song.path)) << ">";
    to.Name(song.title) << "</a>";
    if (!song.artist.empty()) to << "<span class=\"sub\" dir=\"auto\">", to.Name(song.artist) << "</span>";
    to << "</div><span class=\"count\">";
    to.Text(PlayingTime(song.seconds)) << "</span></li>";
}

void AddNamed(const Address& address, std::string_view name, const std::string& count, Markup& to) {
    to << "<li><a";
    to.Link("href", address) << "><span dir=\"auto\">";
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

void AddHeading(std::string_view text, const std::string& count, Markup& to) {
    to << "<div class=\"head\"><h1 dir=\"auto\">";
    to.Name(text) << "</h1>";
    if (!count.empty()) to << "<p class=\"muted\">", to.Text(count) << "</p>";
    to << "</div>";
}

}  // namespace koli::serve
