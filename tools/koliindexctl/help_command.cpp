#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdio>

#include "tools/koliindexctl/commands.h"

namespace koli::ctl {

std::vector<std::string> CommandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands({}))
        names.push_back(command->get_name());
    return names;
}

void AddHelp(CLI::App& app, Arguments& a) {
    CLI::App* help = app.add_subcommand("help", "Explain the program, or a command");
    TakesOneOf(help->add_option("COMMAND", a.first, "One of the commands"), CommandNames(app), a);
    help->footer("Example:\n  koliindexctl help sync\n");
    SetWork(help, a, [&app, &a] {
        const std::string name = app.get_name();
        const std::string text = a.first.empty()
                                     ? app.get_formatter()->make_help(&app, name, CLI::AppFormatMode::Normal)
                                     : app.get_subcommand(a.first)->help(name);
        printf("%s", text.c_str());
        return kExitDone;
    });
}

}  // namespace koli::ctl
