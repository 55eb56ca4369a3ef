#include "tools/koliindexctl/command_line.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <cstdio>

#include "tools/ctl/daemon_zone.h"
#include "tools/ctl/suggestion.h"
#include "tools/koliindexctl/commands.h"
#include "tools/koliindexctl/help_format.h"

namespace koli::ctl {
namespace {

constexpr char kFooter[] =
    R"(Exit codes:
  0  done, or everything is in step
  1  done, but something is not stored or was not found, or there are
     differences or problems
  2  wrong usage, or a path that cannot be queued or watched, an address that
     cannot be served; nothing was queued
  3  the daemon does not run or cannot be woken; requests were queued all the
     same
  4  the spool, a folder or another file could not be read or written; only what
     did not need it was done
  5  a database could not be read or mended; what was queued before is kept

Examples:
  koliindexctl add --wait /volume1/music/Album
  koliindexctl sync --dry-run
  koliindexctl search moonlight sonata
  koliindexctl why /volume1/music/Album/Song.mp3
)";

/// Names the group, in --help, of the commands that have none yet.
void SetGroup(CLI::App& app, const char* name) {
    for (CLI::App* command : app.get_subcommands({}))
        if (command->get_group() == "Subcommands") command->group(name);
}

void Declare(CLI::App& app, Arguments& arguments) {
    app.formatter(std::make_shared<HelpFormat>());
    app.set_help_flag("-h,--help", "Print this help");
    app.set_version_flag("--version", "koliindexctl " KOLI_VERSION, "Print the version");
    app.footer(kFooter);
    app.require_subcommand(1);
    AddRequests(app, arguments);
    AddLibraryRequests(app, arguments);
    AddSync(app, arguments);
    AddRepair(app, arguments);
    SetGroup(app, "Requests");
    AddStatus(app, arguments);
    AddQueries(app, arguments);
    AddCharset(app, arguments);
    AddWhy(app, arguments);
    SetGroup(app, "Questions");
    AddMachine(app, arguments);
    AddServe(app, arguments);
    AddCompletion(app, arguments);
    AddHelp(app, arguments);
    SetGroup(app, "The machine");
}

std::vector<std::string> OptionNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options())
        for (const std::string& name : option->get_lnames())
            names.push_back("--" + name);
    return names;
}

/// Says in one line what is wrong.
void ComplainOf(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<CLI::App*> commands = app.get_subcommands();
    const CLI::App& current = commands.empty() ? app : *commands.front();
    const std::string where = commands.empty() ? "" : " " + current.get_name();
    // The parser misses what it needs before it looks at words that it does not know.
    const std::vector<std::string> unknown = app.remaining(true);
    if (unknown.empty()) {
        Complain("%s (see koliindexctl%s --help)", error.what(), where.c_str());
        return;
    }
    const std::string word = unknown.front().substr(0, unknown.front().find('='));
    const bool is_option = word.starts_with("-");
    if (is_option && std::ranges::count(OptionNames(current), word) > 0) {
        Complain("%s: this option stands behind%s", word.c_str(), where.c_str());
        return;
    }
    const std::string meant = is_option          ? DidYouMean(word, OptionNames(current))
                              : commands.empty() ? DidYouMean(word, CommandNames(app))
                                                 : "";
    const char* what = is_option ? "option" : commands.empty() ? "command" : "argument";
    const std::string more = meant.empty() ? " (see koliindexctl" + where + " --help)" : meant;
    Complain("%s: there is no such %s%s", word.c_str(), what, more.c_str());
}

}  // namespace

int CommandLineRun(int argc, char** argv) {
    Arguments arguments;
    if (argc > 2) arguments.words.assign(argv + 2, argv + argc);
    CLI::App app("Looks after koliindexd: queues requests, keeps folders in step, shows what is stored.",
                 "koliindexctl");
    Declare(app, arguments);
    DaemonZoneTake(arguments.context.places.pid_file);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);  // help, version
        ComplainOf(app, error);
        return kExitUsage;
    }
    if (fflush(stdout) != 0 || ferror(stdout) != 0) {
        Complain("the output could not be written");
        return kExitFiles;
    }
    return arguments.exit_code;
}

}  // namespace koli::ctl
