#include "tools/koliindexctl/command_line.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdio>

#include "tools/ctl/daemon_zone.h"
#include "tools/koliindexctl/commands.h"

namespace koli::ctl {
namespace {

constexpr char kFooter[] =
    R"(Exit codes: 0 done, or everything is in step; 1 done, but something could not be stored, or differences or
problems were found; 2 wrong usage, or a path that cannot be queued; 3 the daemon does not run or cannot be
woken (requests are queued all the same); 4 the spool or another file could not be read or written; 5 a
database could not be read or mended.

Examples:
  koliindexctl add --wait /volume1/music/Album
  koliindexctl sync --dry-run
  koliindexctl list --kind music --where artist=Somebody
  koliindexctl problems --json
)";

}  // namespace

int CommandLineRun(int argc, char** argv) {
    Arguments arguments;
    if (argc > 2) arguments.words.assign(argv + 2, argv + argc);
    CLI::App app("Looks after koliindexd: queues requests, keeps folders in step, shows what is stored.",
                 "koliindexctl");
    app.footer(kFooter);
    app.require_subcommand(1);
    AddRequests(app, arguments);
    AddLibraryRequests(app, arguments);
    AddSync(app, arguments);
    AddRepair(app, arguments);
    AddStatus(app, arguments);
    AddQueries(app, arguments);
    AddMachine(app, arguments);
    AddServe(app, arguments);
    AddCompletion(app, arguments);
    DaemonZoneTake(arguments.context.places.pid_file);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);  // help
        // The parser misses what it needs before it looks at words that it does not know.
        const std::vector<std::string> unknown = app.remaining(true);
        const bool is_command = app.get_subcommands().empty();
        if (!unknown.empty())
            Complain("%s: there is no such %s (see koliindexctl --help)", unknown.front().c_str(),
                     is_command ? "command" : "option or argument");
        else
            Complain("%s (see koliindexctl --help)", error.what());
        return kExitUsage;
    }
    if (fflush(stdout) != 0 || ferror(stdout) != 0) {
        Complain("the output could not be written");
        return kExitFiles;
    }
    return arguments.exit_code;
}

}  // namespace koli::ctl
