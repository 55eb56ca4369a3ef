#include "tools/koliindexctl/command_line.h"

#include <unistd.h>
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <climits>
#include <cstdio>

#include "tools/ctl/daemon_zone.h"
#include "tools/ctl/enqueue.h"
#include "tools/ctl/list.h"
#include "tools/ctl/repair.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/requests.h"
#include "tools/ctl/setup.h"
#include "tools/ctl/show.h"
#include "tools/ctl/status.h"
#include "tools/ctl/sync.h"
#include "tools/koliindexctl/completion.h"
#include "tools/watch/watch_command.h"

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

/// What the parser fills in.
struct Arguments {
    Context context;
    std::vector<std::string> paths;
    std::string first, second;  // single positional arguments
    bool is_sure = false;
    bool is_service = false;  // of the queue, for one caller
    SyncOptions sync;
    ListOptions list;
    SetupOptions setup;
    int exit_code = kExitDone;
};

CLI::App* AddCommand(CLI::App& app, const char* name, const char* purpose, const char* example,
                     Arguments& arguments) {
    CLI::App* command = app.add_subcommand(name, purpose);
    command->add_flag("--json", arguments.context.json, "Print JSON for programs");
    command->footer(std::string("Example:\n  koliindexctl ") + example + "\n");
    return command;
}

/// A sub-command's work, which gives the exit code.
template <typename Work>
void SetWork(CLI::App* command, Arguments& arguments, Work work) {
    command->callback([&arguments, work] { arguments.exit_code = work(); });
}

void AddWaitOptions(CLI::App* command, WaitOptions& wait) {
    CLI::Option* flag =
        command->add_flag("--wait", wait.wait, "Wait until the daemon has done it, and look at the result");
    command
        ->add_flag("--strict", wait.strict,
                   "With --wait: exit with 1 for files without readable metadata, too")
        ->needs(flag);
    command->add_option("--timeout", wait.timeout, "With --wait: give up after this many seconds")
        ->needs(flag)
        ->check(CLI::Range(1, INT_MAX));
}

void AddRequests(CLI::App& app, Arguments& a) {
    CLI::App* add =
        AddCommand(app, "add", "Queue files or whole folders", "add --wait /volume1/music/Album", a);
    add->add_option("PATH", a.paths, "Files or folders")->required();
    SetWork(add, a, [&a] { return Add(a.context, a.paths, a.sync.wait); });

    CLI::App* remove = AddCommand(app, "remove", "Queue the removal of files or folders that are gone",
                                  "remove /volume1/music/Gone", a);
    remove->add_option("PATH", a.paths, "Files or folders that do not exist any more")->required();
    SetWork(remove, a, [&a] { return Remove(a.context, a.paths, a.sync.wait); });

    CLI::App* rename = AddCommand(app, "rename", "Queue that a file or folder has got a new name",
                                  "rename /volume1/photo/Old /volume1/photo/New", a);
    rename->add_option("OLD", a.first, "The path until now")->required();
    rename->add_option("NEW", a.second, "The path that it has got")->required();
    SetWork(rename, a, [&a] { return Rename(a.context, a.first, a.second, a.sync.wait); });

    CLI::App* enqueue =
        AddCommand(app, "enqueue", "Queue the request lines of the standard input", "enqueue <requests", a);
    // For the unit of the queue's service alone: who calls it, and with what standard input, does not tell.
    enqueue->add_flag("--serve", a.is_service)->group("");
    SetWork(enqueue, a, [&a] {
        return a.is_service ? QueueServe(a.context.places, ShareFolders("all"), STDIN_FILENO)
                            : Enqueue(a.context, a.sync.wait);
    });

    for (CLI::App* command : {add, remove, rename, enqueue})
        AddWaitOptions(command, a.sync.wait);
}

void AddLibraryRequests(CLI::App& app, Arguments& a) {
    CLI::App* rebuild = AddCommand(app, "rebuild", "Forget a library and index it again", "rebuild music", a);
    rebuild
        ->add_option("LIBRARY", a.first,
                     "music, video, photo (the photo library) or all (of the media store)")
        ->default_str("all")
        ->check(CLI::IsMember({"music", "video", "photo", "all"}));
    SetWork(rebuild, a, [&a] { return Rebuild(a.context, a.first.empty() ? "all" : a.first, a.sync.wait); });

    CLI::App* resync = AddCommand(app, "resync", "Look at the whole photo share again", "resync", a);
    SetWork(resync, a, [&a] { return Resync(a.context, a.sync.wait); });

    CLI::App* truncate =
        AddCommand(app, "truncate", "Remove every row of a table", "truncate --yes playlist", a);
    truncate->add_option("TABLE", a.first, "A table of either database")->required();
    truncate->add_flag("--yes", a.is_sure, "Yes, remove them");
    SetWork(truncate, a, [&a] { return Truncate(a.context, a.first, a.is_sure, a.sync.wait); });

    for (CLI::App* command : {rebuild, resync, truncate})
        AddWaitOptions(command, a.sync.wait);
}

void AddSync(CLI::App& app, Arguments& a) {
    CLI::App* sync = AddCommand(app, "sync", "Compare folders with the databases and queue what differs",
                                "sync --dry-run /volume1/music", a);
    sync->add_option("PATH", a.paths, "Folders or files; none: the three shares");
    sync->add_flag("--dry-run", a.sync.dry_run, "Only print the differences");
    sync->add_flag("--allow-empty", a.sync.allow_empty,
                   "Take a missing or empty folder for one whose files have been deleted");
    AddWaitOptions(sync, a.sync.wait);
    SetWork(sync, a, [&a] { return Sync(a.context, a.paths, a.sync); });
}

void AddRepair(CLI::App& app, Arguments& a) {
    CLI::App* repair = AddCommand(
        app, "repair", "Save what can be read from a damaged database into a new one", "repair --wait", a);
    repair->add_flag("--dry-run", a.sync.dry_run, "Only say what is damaged");
    AddWaitOptions(repair, a.sync.wait);
    SetWork(repair, a, [&a] { return Repair(a.context, {.dry_run = a.sync.dry_run, .wait = a.sync.wait}); });
}

void AddQueries(CLI::App& app, Arguments& a) {
    CLI::App* status =
        AddCommand(app, "status", "The daemon, its queue and its databases", "status --json", a);
    SetWork(status, a, [&a] { return Status(a.context); });

    CLI::App* show = AddCommand(app, "show", "Everything that is stored for a file or folder",
                                "show /volume1/music/Album/Song.mp3", a);
    show->add_option("PATH", a.first, "A file or folder")->required();
    SetWork(show, a, [&a] { return Show(a.context, a.first); });

    CLI::App* list = AddCommand(app, "list", "The stored files",
                                "list --kind music --where artist=Somebody --below /volume1/music", a);
    list->add_option("--kind", a.list.kinds, "music, video, photo or playlist; may be given several times")
        ->check(CLI::IsMember({"music", "video", "photo", "playlist"}))
        ->expected(1)
        ->take_all();
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

void AddMachine(CLI::App& app, Arguments& a) {
    CLI::App* watch =
        app.add_subcommand("watch", "Compare folders, then queue what changes in them until SIGTERM");
    watch->add_option("FOLDER", a.paths, "Shares, or folders in them")->required();
    watch->footer("Example:\n  koliindexctl watch /var/services/music /var/services/photo\n");
    SetWork(watch, a, [&a] { return watch::Watch(a.context, a.paths); });

    CLI::App* setup = AddCommand(app, "setup", "Show or make what a plain machine needs for the daemon",
                                 "setup --apply /volume1", a);
    CLI::Option* volume =
        setup->add_option("VOLUME", a.first, "The folder of the shares music, video and photo");
    CLI::Option* apply = setup->add_flag("--apply", a.setup.apply, "Make what is missing");
    setup->add_flag("--undo", a.setup.undo, "Remove what an earlier --apply made")
        ->excludes(apply)
        ->excludes(volume);
    SetWork(setup, a, [&a] { return Setup(a.context, a.first, a.setup); });
}

void AddCompletion(CLI::App& app, Arguments& a) {
    CLI::App* completion = app.add_subcommand("completion", "Print the completion script of a shell");
    completion->add_option("SHELL", a.first, "bash")->required()->check(CLI::IsMember({"bash"}));
    SetWork(completion, a, [&app] {
        printf("%s", BashCompletion(app).c_str());
        return kExitDone;
    });
}

}  // namespace

int CommandLineRun(int argc, char** argv) {
    Arguments arguments;
    CLI::App app("Looks after koliindexd: queues requests, keeps folders in step, shows what is stored.",
                 "koliindexctl");
    app.footer(kFooter);
    app.require_subcommand(1);
    AddRequests(app, arguments);
    AddLibraryRequests(app, arguments);
    AddSync(app, arguments);
    AddRepair(app, arguments);
    AddQueries(app, arguments);
    AddMachine(app, arguments);
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
