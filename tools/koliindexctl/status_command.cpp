#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "tools/ctl/status.h"
#include "tools/koliindexctl/commands.h"

namespace koli::ctl {

void AddStatus(CLI::App& app, Arguments& a) {
    CLI::App* status =
        AddCommand(app, "status", "The daemon, its queue and its databases", "status --json", a);
    SetWork(status, a, [&a] { return Status(a.context); });
}

}  // namespace koli::ctl
