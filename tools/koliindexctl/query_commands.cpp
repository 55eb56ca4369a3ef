#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <climits>

#include "tools/ctl/show.h"
#include "tools/koliindexctl/commands.h"

namespace koli::ctl {

void AddQueries(CLI::App& app, Arguments& a) {
    CLI::App* show = AddCommand(app, "show", "Everything that is stored for a file or folder",
                                "show /volume1/music/Album/Song.mp3", a);
    show->add_option("PATH", a.first, "A file or folder")->required();
    SetWork(show, a, [&a] { return Show(a.context, a.first); });

    CLI::App* list = AddCommand(app, "list", "The stored files",
                                "list --kind music --where artist=Somebody --below /volume1/music", a);
    CLI::Option* kind = list->add_option("--kind", a.list.kinds,
                                         "music, video, photo or playlist; may be given several times")
                            ->type_name("KIND")
                            ->expected(1)
                            ->take_all();
    TakesOneOf(kind, {"music", "video", "photo", "playlist"}, a);
    list->add_option("--where", a.list.where,
                     "COLUMN=VALUE, or COLUMN~TEXT for a part of it in any case; may be given several times")
        ->expected(1)
        ->take_all();
    list->add_option("--below", a.list.below, "Only a path and what is below it");
    list->add_option("--limit", a.list.limit, "At most this many rows of each kind")
        ->check(CLI::Range(1, INT_MAX));
    SetWork(list, a, [&a] { return List(a.context, a.list); });

    CLI::App* problems = AddCommand(app, "problems", "Files whose metadata could not be read, and why",
                                    "problems --below /volume1/music", a);
    problems->add_option("--below", a.list.below, "Only a path and what is below it");
    SetWork(problems, a, [&a] { return Problems(a.context, a.list.below); });
}

}  // namespace koli::ctl
