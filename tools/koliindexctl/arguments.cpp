#include "tools/koliindexctl/arguments.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <climits>

namespace koli::ctl {

CLI::App* AddCommand(CLI::App& app, const char* name, const char* purpose, const char* example,
                     Arguments& arguments) {
    CLI::App* command = app.add_subcommand(name, purpose);
    command->add_flag("--json", arguments.context.json, "Print JSON for programs");
    command->footer(std::string("Example:\n  koliindexctl ") + example + "\n");
    return command;
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

}  // namespace koli::ctl
