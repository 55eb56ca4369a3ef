#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <climits>

#include "tools/ctl/media_columns.h"
#include "tools/ctl/search.h"
#include "tools/ctl/show.h"
#include "tools/ctl/stats.h"
#include "tools/koliindexctl/commands.h"

namespace koli::ctl {

namespace {

constexpr size_t kHelpWidth = 80;

std::string Wrapped(std::string text) {
    for (size_t begin = 0; text.size() - begin > kHelpWidth;) {
        const size_t blank = text.rfind(' ', begin + kHelpWidth);
        if (blank == std::string::npos || blank < begin) break;
        text[blank] = '\n';
        begin = blank + 1;
    }
    return text;
}

/// Which rows, and what is printed of them.
void AddRowsOptions(CLI::App* command, RowsOptions& rows, const std::vector<std::string>& kinds) {
    std::string names;
    for (const std::string& kind : kinds)
        names.append(names.empty() ? "" : kind == kinds.back() ? " or " : ", ").append(kind);
    command->add_option("--kind", rows.kinds, names + "; may be given several times")
        ->check(CLI::IsMember(kinds))
        ->expected(1)
        ->take_all();
    command->add_option("--below", rows.below, "Only a path and what is below it");
    CLI::Option* limit = command->add_option("--limit", rows.limit, "At most this many rows of each kind")
                             ->check(CLI::Range(1, INT_MAX));
    CLI::Option* count =
        command->add_flag("--count", rows.count, "Only print how many there are")->excludes(limit);
    command
        ->add_flag("--print0", rows.print0, "Only print the paths, each with a NUL behind it: for xargs -0")
        ->excludes(count)
        ->excludes("--json");
}

}  // namespace

void AddQueries(CLI::App& app, Arguments& a) {
    CLI::App* show = AddCommand(app, "show", "Everything that is stored for a file or folder",
                                "show /volume1/music/Album/Song.mp3", a);
    show->add_option("PATH", a.first, "A file or folder")->required();
    SetWork(show, a, [&a] { return Show(a.context, a.first); });

    CLI::App* list = AddCommand(app, "list", "The stored files",
                                "list --kind music --where artist=Somebody --below /volume1/music", a);
    AddRowsOptions(list, a.list, {"music", "video", "photo", "playlist"});
    list->add_option(
            "--where", a.list.where,
            "COLUMN=VALUE; or with != ~ (a part, in any case) !~ < > <= >=; may be given several times")
        ->expected(1)
        ->take_all();
    list->add_option("--columns", a.list.columns, "Which columns, separated by commas; kind is one, too")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->excludes("--count")
        ->excludes("--print0");
    list->add_option("--sort", a.list.sort, "In the order of this column instead of the path")
        ->excludes("--count");
    list->add_flag("--reverse", a.list.reverse, "From the last one to the first")->excludes("--count");
    list->footer(Wrapped("Columns: kind, " + MediaColumnNames()) + "\n\n" + list->get_footer());
    SetWork(list, a, [&a] { return List(a.context, a.list); });

    CLI::App* search =
        AddCommand(app, "search", "Files and folders by words in their names, tags and captions",
                   "search --kind music moonlight sonata", a);
    search
        ->add_option("TEXT", a.paths, "Words, or parts of them; all must occur, in any case and in any order")
        ->required();
    AddRowsOptions(search, a.list, kSearchedKinds);
    SetWork(search, a, [&a] { return Search(a.context, a.paths, a.list); });

    CLI::App* stats = AddCommand(app, "stats", "How many files, artists, albums, hours and bytes are stored",
                                 "stats --below /volume1/music", a);
    stats->add_option("--below", a.list.below, "Only a path and what is below it");
    SetWork(stats, a, [&a] { return Stats(a.context, a.list.below); });

    CLI::App* problems = AddCommand(app, "problems", "Files whose metadata could not be read, and why",
                                    "problems --below /volume1/music", a);
    problems->add_option("--below", a.list.below, "Only a path and what is below it");
    SetWork(problems, a, [&a] { return Problems(a.context, a.list.below); });
}

}  // namespace koli::ctl
