// Playlists, and what one names.
#include <algorithm>

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

std::string SumText(const std::vector<PlaylistEntry>& entries) {
    const auto missing =
        std::count_if(entries.begin(), entries.end(), [](const auto& entry) { return !entry.is_listed; });
    double seconds = 0;
    for (const PlaylistEntry& entry : entries)
        seconds += entry.song.seconds;
    return Joined({GroupedCount(static_cast<int64_t>(entries.size()) - missing, "song"), PlayingTime(seconds),
                   missing > 0 ? Grouped(missing) + " not in the library" : ""});
}

}  // namespace

Reply PlaylistsPage(const Visit& visit) {
    constexpr size_t kLists = 60;
    const Span span = visit.Piece(kLists);
    const auto lists = visit.library.Playlists(span);
    Markup main = visit.NewMarkup();
    AddHeading("Playlists", Grouped(static_cast<int64_t>(lists.total)), main);
    if (lists.total == 0) {
        main << EmptyNote(visit, "There are no playlists in the library yet.",
                          "Those on the music share (.m3u, .wpl) appear once the daemon has looked at them.");
    } else {
        main << "<ul class=\"grid\" id=\"list\">";
        for (const PlaylistRow& list : lists.rows)
            AddPlaylistCard(list, main);
        main << "</ul>";
        AddMore(span, lists.total, Address("/playlists"), main);
    }
    return PageReply(visit.Head(TitleOf({"Playlists", FromText(span)}), Area::kPlaylists), main);
}

Reply PlaylistPage(const Visit& visit) {
    const std::string path = PathOf(visit.request.path, 1);
    PlaylistView view;
    if (!visit.library.Playlist(path, &view)) return MissingPage(visit);
    Markup main = visit.NewMarkup();
    AddHeading(view.playlist.title, view.is_readable ? SumText(view.entries) : "", main);
    AddPlayAll(main);
    main << "<p><a";
    main.Link("href", EntryAddress(path)) << ">All that is stored of it</a></p>";
    if (!view.is_readable)
        main << NoteOf("This playlist cannot be read.", "Who runs this page may not read it, or it is gone.");
    if (view.is_readable && view.entries.empty()) main << NoteOf("This playlist names nothing.", "");
    if (view.is_cut) main << "<p class=\"muted\">It is longer than what is shown here.</p>";
    AddEntries(view.entries, main);
    return PageReply(visit.Head(TitleOf({view.playlist.title, "Playlist"}), Area::kPlaylists), main);
}

}  // namespace koli::serve
