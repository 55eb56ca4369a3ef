#include <unistd.h>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "platform/host/tables.h"
#include "tools/ctl/daemon_zone.h"
#include "tools/ctl/enqueue.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/requests.h"
#include "tools/koliindexctl/commands.h"

namespace koli::ctl {

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

    for (CLI::App* command : {add, remove, rename, enqueue}) {
        AddQuiet(command, a);
        AddWaitOptions(command, a.sync.wait);
    }
}

void AddLibraryRequests(CLI::App& app, Arguments& a) {
    CLI::App* rebuild = AddCommand(app, "rebuild", "Forget a library and index it again", "rebuild music", a);
    CLI::Option* library = rebuild->add_option(
        "LIBRARY", a.first,
        "music, video, photo (the photo library) or all (of the media store, if none is named)");
    TakesOneOf(library, {"music", "video", "photo", "all"}, a);
    SetWork(rebuild, a, [&a] { return Rebuild(a.context, a.first.empty() ? "all" : a.first, a.sync.wait); });

    CLI::App* resync = AddCommand(app, "resync", "Look at the whole photo share again", "resync", a);
    SetWork(resync, a, [&a] { return Resync(a.context, a.sync.wait); });

    CLI::App* truncate =
        AddCommand(app, "truncate", "Remove every row of a table", "truncate --yes playlist", a);
    std::vector<std::string> tables(std::begin(host::kMediaTables), std::end(host::kMediaTables));
    tables.insert(tables.end(), std::begin(host::kPhotoTables), std::end(host::kPhotoTables));
    TakesOneOf(truncate->add_option("TABLE", a.first, "A table of either database")->required(), tables, a);
    truncate->add_flag("--yes", a.is_sure, "Yes, remove them");
    SetWork(truncate, a, [&a] { return Truncate(a.context, a.first, a.is_sure, a.sync.wait); });

    for (CLI::App* command : {rebuild, resync, truncate}) {
        AddQuiet(command, a);
        AddWaitOptions(command, a.sync.wait);
    }
}

}  // namespace koli::ctl
