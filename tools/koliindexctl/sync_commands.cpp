#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "tools/ctl/repair.h"
#include "tools/koliindexctl/commands.h"

namespace koli::ctl {

void AddSync(CLI::App& app, Arguments& a) {
    CLI::App* sync = AddCommand(app, "sync", "Compare folders with the databases and queue what differs",
                                "sync --dry-run /volume1/music", a);
    sync->add_option("PATH", a.paths, "Folders or files; none: the three shares");
    sync->add_flag("--dry-run", a.sync.dry_run, "Only print the differences");
    sync->add_option(
            "--allow-empty", a.sync.allow_empty,
            "Take this folder, missing or empty, for one whose files have been deleted; may be given "
            "several times")
        ->type_name("FOLDER")
        ->expected(1)
        ->take_all();
    AddQuiet(sync, a);
    AddWaitOptions(sync, a.sync.wait);
    SetWork(sync, a, [&a] { return Sync(a.context, a.paths, a.sync); });
}

void AddRepair(CLI::App& app, Arguments& a) {
    CLI::App* repair = AddCommand(
        app, "repair", "Save what can be read from a damaged database into a new one", "repair --wait", a);
    repair->add_flag("--dry-run", a.sync.dry_run, "Only say what is damaged");
    AddQuiet(repair, a);
    AddWaitOptions(repair, a.sync.wait);
    SetWork(repair, a, [&a] { return Repair(a.context, {.dry_run = a.sync.dry_run, .wait = a.sync.wait}); });
}

}  // namespace koli::ctl
