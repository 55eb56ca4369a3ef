#include "tools/ctl/setup_server.h"

#include <algorithm>
#include <cstdio>

#include "base/media_info.h"
#include "platform/host/engine_choice.h"
#include "platform/kolisdk.h"
#include "tools/ctl/membership.h"
#include "tools/ctl/output.h"
#include "tools/ctl/settings_write.h"

namespace koli::ctl {
namespace {

/// True when the settings say just this.
bool IsSet(const std::string& key, const std::string& value) {
    return BlKOLIFileCheckKeyValue(paths::kConfig, key.c_str(), value.c_str(), 0) != 0;
}

/// The steps of the server, then what this machine's settings are to say.
void Print(const Context& context, const host::ServerPlan& plan, const Settings& settings, bool is_written) {
    RowPrinter rows({"state", "kind", "name", "value"}, context.json);
    for (const host::ServerStep& step : plan.steps)
        rows.Row({!step.is_missing ? "present"
                  : plan.is_made   ? "made"
                                   : "to make",
                  step.kind, step.name, ""});
    for (const auto& [key, value] : settings)
        rows.Row({is_written ? "made" : IsSet(key, value) ? "present" : "to set", "setting", key, value});
}

bool IsComplete(const host::ServerPlan& plan) {
    return plan.is_made ||
           std::ranges::none_of(plan.steps, [](const host::ServerStep& step) { return step.is_missing; });
}

}  // namespace

int SetupServer(const Context& context, const ServerSetupOptions& options) {
    host::SqlFailure failure;
    const std::string library = !options.library.empty() ? options.library : host::LibraryOfMachine(&failure);
    if (!failure.reason.empty()) {
        Complain("cannot read %s: %s", paths::kConfig, failure.reason.c_str());
        return kExitFiles;
    }
    const host::ServerPlan plan = host::ServerSetUpAt(options.conninfo, library, options.apply);
    if (!plan.error.empty()) {
        Complain("%s", plan.error.c_str());
        return kExitDatabase;
    }
    const Settings settings = {{"database", plan.place}, {"library", library}, {"reader", plan.reader}};
    std::string error;
    const bool is_to_write = options.apply && options.configure;
    const bool is_written = is_to_write && SettingsWrite(paths::kConfig, settings, &error);
    Print(context, plan, settings, is_written);
    if (!error.empty()) {
        Complain("%s%s", error.c_str(), RootHint().c_str());
        return kExitFiles;
    }
    return IsComplete(plan) ? kExitDone : kExitDifferences;
}

}  // namespace koli::ctl
