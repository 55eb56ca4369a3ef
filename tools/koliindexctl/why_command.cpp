#include "tools/ctl/why.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "tools/koliindexctl/commands.h"

namespace koli::ctl {

void AddWhy(CLI::App& app, Arguments& a) {
    CLI::App* why = AddCommand(app, "why", "Why a file or folder is stored as it is, or not at all",
                               "why /volume1/music/Album/Song.mp3", a);
    why->add_option("PATH", a.first, "A file or folder")->required();
    SetWork(why, a, [&a] { return Why(a.context, a.first); });
}

}  // namespace koli::ctl
