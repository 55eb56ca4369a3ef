#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "tools/koliindexctl/commands.h"
#include "tools/watch/watch_command.h"

namespace koli::ctl {

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

}  // namespace koli::ctl
