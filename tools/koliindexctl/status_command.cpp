#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "tools/ctl/status.h"
#include "tools/koliindexctl/commands.h"

namespace koli::ctl {

void AddStatus(CLI::App& app, Arguments& a) {
    CLI::App* status =
        AddCommand(app, "status", "The daemon, its queue and its databases", "status --follow", a);
    CLI::Option* follow =
        status->add_flag("--follow", a.is_following,
                         "Show it again whenever it changes, until Ctrl-C; with --json an object a line");
    CLI::Option* metrics = status->add_flag("--metrics", a.is_metrics,
                                            "Print it for a monitoring system, as Prometheus reads it");
    metrics->excludes(follow)->excludes(status->get_option("--json"));
    AddLibrary(status, a)->excludes(follow)->excludes(metrics);
    SetWork(status, a, [&a] {
        if (a.is_following) return StatusFollow(a.context);
        return a.is_metrics ? StatusMetrics(a.context) : Status(a.context);
    });
}

}  // namespace koli::ctl
