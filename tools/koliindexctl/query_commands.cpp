#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <climits>

#include "tools/ctl/media_columns.h"
#include "tools/ctl/search.h"
#include "tools/ctl/show.h"
#include "tools/ctl/stats.h"
#include "tools/koliindexctl/commands.h"
#include "tools/koliindexctl/help_format.h"

namespace koli::ctl {

namespace {

std::vector<std::string> ColumnNames(const char* first = nullptr) {
    std::vector<std::string> names;
    if (first != nullptr) names.emplace_back(first);
    for (const MediaColumn& column : MediaColumns())
        names.push_back(column.name);
    return names;
}

void AddBelow(CLI::App* command, Arguments& a) {
    command->add_option("--below", a.list.below, "Only a path and what is below it")->type_name("PATH");
}

/// Which rows, and what is printed of them.
void AddRowsOptions(CLI::App* command, const std::vector<std::string>& kinds, Arguments& a) {
    std::string names;
    for (const std::string& kind : kinds)
        names.append(names.empty() ? "" : kind == kinds.back() ? " or " : ", ").append(kind);
    CLI::Option* kind = command->add_option("--kind", a.list.kinds, names + "; may be given several times")
                            ->type_name("KIND")
                            ->expected(1)
                            ->take_all();
    TakesOneOf(kind, kinds, a);
    AddBelow(command, a);
    AddLibrary(command, a);
    CLI::Option* limit = command->add_option("--limit", a.list.limit, "At most this many rows of each kind")
                             ->type_name("NUMBER")
                             ->check(CLI::Range(1, INT_MAX));
    CLI::Option* count =
        command->add_flag("--count", a.list.count, "Only print how many there are")->excludes(limit);
    command
        ->add_flag("--print0", a.list.print0, "Only print the paths, each with a NUL behind it: for xargs -0")
        ->excludes(count)
        ->excludes("--json");
}

void AddList(CLI::App& app, Arguments& a) {
    CLI::App* list = AddCommand(app, "list", "The stored files",
                                "list --kind music --where artist=Somebody --below /volume1/music", a);
    AddRowsOptions(list, {"music", "video", "photo", "playlist"}, a);
    CLI::Option* where =
        list->add_option(
                "--where", a.list.where,
                "COLUMN=VALUE; or with != ~ (a part, in any case) !~ < > <= >=; may be given several times")
            ->type_name("CONDITION")
            ->expected(1)
            ->take_all();
    a.offers[where] = {Offer::kCondition, ColumnNames()};
    CLI::Option* columns =
        list->add_option("--columns", a.list.columns, "Which columns, separated by commas; kind is one, too")
            ->type_name("COLUMNS")
            ->delimiter(',')
            ->allow_extra_args(false)
            ->excludes("--count")
            ->excludes("--print0");
    a.offers[columns] = {Offer::kList, ColumnNames("kind")};
    CLI::Option* sort =
        list->add_option("--sort", a.list.sort, "In the order of this column instead of the path")
            ->type_name("COLUMN")
            ->excludes("--count");
    TakesOneOf(sort, ColumnNames(), a);
    list->add_flag("--reverse", a.list.reverse, "From the last one to the first")->excludes("--count");
    list->footer(WrappedText("Columns: kind, " + MediaColumnNames()) + "\n" + list->get_footer());
    SetWork(list, a, [&a] { return List(a.context, a.list); });
}

void AddSearch(CLI::App& app, Arguments& a) {
    CLI::App* search =
        AddCommand(app, "search", "Files and folders by words in their names, tags and captions",
                   "search --kind music moonlight sonata", a);
    search
        ->add_option("TEXT", a.paths, "Words, or parts of them; all must occur, in any case and in any order")
        ->required();
    AddRowsOptions(search, kSearchedKinds, a);
    SetWork(search, a, [&a] { return Search(a.context, a.paths, a.list); });
}

}  // namespace

void AddQueries(CLI::App& app, Arguments& a) {
    CLI::App* show = AddCommand(app, "show", "Everything that is stored for a file or folder",
                                "show /volume1/music/Album/Song.mp3", a);
    show->add_option("PATH", a.first, "A file or folder")->required();
    AddLibrary(show, a);
    SetWork(show, a, [&a] { return Show(a.context, a.first); });

    AddList(app, a);
    AddSearch(app, a);

    CLI::App* stats = AddCommand(app, "stats", "How many files, artists, albums, hours and bytes are stored",
                                 "stats --below /volume1/music", a);
    AddBelow(stats, a);
    AddLibrary(stats, a);
    SetWork(stats, a, [&a] { return Stats(a.context, a.list.below); });

    CLI::App* problems = AddCommand(app, "problems", "Files whose metadata could not be read, and why",
                                    "problems --below /volume1/music", a);
    AddBelow(problems, a);
    SetWork(problems, a, [&a] { return Problems(a.context, a.list.below); });
}

}  // namespace koli::ctl
