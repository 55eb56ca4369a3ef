// Playlists, and what one names.
#include "tools/serve/page/pages.h"
#include "tools/serve/page/parts.h"
#include "tools/serve/page/values.h"

namespace koli::serve {
namespace {

void AddEntries(const std::vector<PlaylistEntry>& entries, Markup& main) {
    int64_t number = 0;
    main << "<ol class=\"tracks\">";
    for (const PlaylistEntry& entry : entries) {
        const std::string place = std::to_string(++number);
        if (entry.is_listed) {
            AddSong(entry.song, place, main);
            continue;
        }
        main << "<li><span class=\"play\">";
        main.Text(place) << "</span><div><span class=\"name muted\" dir=\"auto\">";
        main.Name(entry.text)
            << "</span><span class=\"sub\">not in the library</span></div><span></span></li>";
    }
    main << "</ol>";
}

}  // namespace

Reply PlaylistsPage(const Visit& visit) {
    constexpr size_t kLists = 60;
    const Span span = visit.Piece(kLists);
    const auto lists = visit.library.Playlists(span);
    Markup main = visit.NewMarkup();
    AddHeading("Playlists", Grouped(static_cast<int64_t>(lists.total)), main);
    if (lists.total == 0) {
        main << NothingNote(
            visit, "There are no playlists in the library yet.",
            "Those on the music share (.m3u, .wpl) appear once the daemon has looked at them.");
    } else {
        main << "<ul class=\"grid\" id=\"list\">";
        for (const PlaylistRow& list : lists.rows)
            AddPlaylistCard(list, main);
        main << "</ul>";
        AddMore(span, lists.total, Address("/playlists"), main);
    }
    return PageReply(visit.Head("Playlists", Area::kPlaylists), main);
}

Reply PlaylistPage(const Visit& visit) {
    const std::string path = PathOf(visit.request.path, 1);
    PlaylistView view;
    if (!visit.library.Playlist(path, &view)) return MissingPage(visit);
    Markup main = visit.NewMarkup();
    AddHeading(view.playlist.title, GroupedCount(static_cast<int64_t>(view.entries.size()), "line"), main);
    main << "<p class=\"row\"><button class=\"main\" data-play-all hidden>Play</button> <a";
    main.Link("href", EntryAddress(path)) << ">All that is stored</a></p>";
    if (!view.is_readable)
        main << NoteOf("This playlist cannot be read.", "Who runs this page may not read it, or it is gone.");
    if (view.is_cut) main << "<p class=\"muted\">It is longer than what is shown here.</p>";
    AddEntries(view.entries, main);
    return PageReply(visit.Head(view.playlist.title, Area::kPlaylists), main);
}

}  // namespace koli::serve
