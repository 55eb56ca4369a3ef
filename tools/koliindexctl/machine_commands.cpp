#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "tools/koliindexctl/commands.h"
#include "tools/watch/watch_command.h"

namespace koli::ctl {
namespace {

void AddSetup(CLI::App& app, Arguments& a) {
    CLI::App* setup = AddCommand(app, "setup", "Show or make what the daemon needs: shares, or a server",
                                 "setup --apply /volume1", a);
    CLI::Option* volume =
        setup->add_option("VOLUME", a.first, "The folder of the shares music, video and photo");
    CLI::Option* apply = setup->add_flag("--apply", a.setup.apply, "Make what is missing");
    CLI::Option* database =
        setup
            ->add_option(
                "--database", a.server_setup.conninfo,
                "A PostgreSQL server instead, as an administrator of it connects, and a database there")
            ->type_name("CONNINFO")
            ->excludes(volume);
    setup->add_option("--library", a.server_setup.library, "What this machine's library is called there")
        ->type_name("NAME")
        ->needs(database);
    setup
        ->add_flag("--configure", a.server_setup.configure,
                   "With --database and --apply: have the daemon use it, too")
        ->needs(database)
        ->needs(apply);
    setup->add_flag("--undo", a.setup.undo, "Remove what an earlier --apply made")
        ->excludes(apply)
        ->excludes(volume)
        ->excludes(database);
    SetWork(setup, a, [&a] {
        a.server_setup.apply = a.setup.apply;
        return a.server_setup.conninfo.empty() ? Setup(a.context, a.first, a.setup)
                                               : SetupServer(a.context, a.server_setup);
    });
}

}  // namespace

void AddMachine(CLI::App& app, Arguments& a) {
    CLI::App* watch =
        app.add_subcommand("watch", "Compare folders, then queue what changes in them until SIGTERM");
    watch->add_option("FOLDER", a.paths, "Shares, or folders in them")->required();
    watch->footer("Example:\n  koliindexctl watch /var/services/music /var/services/photo\n");
    SetWork(watch, a, [&a] { return watch::Watch(a.context, a.paths); });

    AddSetup(app, a);
    CLI::App* copy = AddCommand(app, "copy-database", "Take a library from files to a server, or back",
                                "copy-database sqlite:/var/lib/koli postgresql:service=koli", a);
    copy->add_option("FROM", a.copy.from, "sqlite: and a folder, or postgresql: and a conninfo")->required();
    copy->add_option("TO", a.copy.to, "The same, with no library in it yet")->required();
    copy->add_option("--library", a.copy.library, "What it is called on the server; else as the settings say")
        ->type_name("NAME");
    SetWork(copy, a, [&a] { return CopyDatabase(a.context, a.copy); });
}

}  // namespace koli::ctl
