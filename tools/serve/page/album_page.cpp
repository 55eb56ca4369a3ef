// One album of music: its cover and songs.
#include <algorithm>

#include "tools/serve/page/pages.h"
#include "tools/serve/page/parts.h"
#include "tools/serve/page/values.h"

namespace koli::serve {
namespace {

constexpr size_t kSongs = 300;

std::string SumText(const AlbumRow& album, const Piece<SongRow>& songs) {
    double seconds = 0;
    for (const SongRow& song : songs.rows)
        seconds += song.seconds;
    return Joined({album.year > 0 ? std::to_string(album.year) : "",
                   GroupedCount(static_cast<int64_t>(songs.total), "song"),
                   songs.rows.size() == songs.total ? PlayingTime(seconds) : ""});
}

void AddTop(const AlbumRow& album, const Piece<SongRow>& songs, Markup& main) {
    const std::string title = AlbumTitle(album.key);
    main << "<div class=\"album\">";
    AddArt({.name = title,
            .path = album.has_cover ? album.cover : std::string_view(),
            .is_cover = true,
            .side = 640},
           main);
    main << "<div class=\"block\"><h1 dir=\"auto\">";
    main.Name(title) << "</h1><p dir=\"auto\">";
    if (!album.key.artist.empty())
        main << "<a", main.Link("href", Address("/music/artist").Word(album.key.artist)) << ">";
    main.Name(ArtistText(album));
    if (!album.key.artist.empty()) main << "</a>";
    main << "</p><p class=\"muted\">";
    main.Text(SumText(album, songs)) << "</p>";
    AddPlayAll(main);
    main << "</div></div>";
}

void AddSongs(const Piece<SongRow>& songs, const std::string& artist, Markup& main) {
    const bool has_discs = std::any_of(songs.rows.begin(), songs.rows.end(), [&songs](const SongRow& song) {
        return song.disc > 1 || song.disc != songs.rows.front().disc;
    });
    int64_t disc = songs.from > 0 && !songs.rows.empty() ? songs.rows.front().disc : -1;
    main << "<ol class=\"tracks\" id=\"list\">";
    for (const SongRow& song : songs.rows) {
        if (has_discs && song.disc != disc) {
            main << "<li><h2>";
            main.Text(song.disc > 0 ? "Disc " + std::to_string(song.disc) : "Other songs") << "</h2></li>";
        }
        disc = song.disc;
        AddSong(song, song.track > 0 ? std::to_string(song.track) : "", main, artist);
    }
    main << "</ol>";
}

}  // namespace

Reply AlbumPage(const Visit& visit) {
    const auto artist = visit.WordAt(2), title = visit.WordAt(3);
    AlbumRow album;
    if (!title || !visit.library.Album({artist.value_or(""), *title}, &album)) return MissingPage(visit);
    const Span span = visit.Piece(kSongs);
    const auto songs = visit.library.SongsOf(album.key, span);
    Markup main = visit.NewMarkup();
    AddTop(album, songs, main);
    AddSongs(songs, album.key.artist, main);
    AddMore(span, songs.total, AlbumAddress(album.key), main);
    return PageReply(visit.Head(TitleOf({AlbumTitle(album.key), ArtistText(album), FromText(span)}),
                                Area::kMusic, "Albums"),
                     main);
}

}  // namespace koli::serve
