#include "tools/koliindexctl/arguments.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "tools/ctl/suggestion.h"

namespace koli::ctl {
namespace {

/// Empty when the value is one of the words.
std::string Refusal(const std::string& value, const std::vector<std::string>& words) {
    if (std::find(words.begin(), words.end(), value) != words.end()) return "";
    const std::string meant = DidYouMean(value, words);
    return "there is no " + value + (meant.empty() ? "; there are " + CLI::detail::join(words, ", ") : meant);
}

}  // namespace

CLI::App* AddCommand(CLI::App& app, const char* name, const char* purpose, const char* example,
                     Arguments& arguments) {
    CLI::App* command = app.add_subcommand(name, purpose);
    command->add_flag("--json", arguments.context.json, "Print JSON for programs");
    command->footer(std::string("Example:\n  koliindexctl ") + example + "\n");
    return command;
}

CLI::Option* TakesOneOf(CLI::Option* option, std::vector<std::string> words, Arguments& arguments) {
    arguments.offers[option] = {Offer::kWord, words};
    return option->check(
        [words = std::move(words)](const std::string& value) { return Refusal(value, words); });
}

void AddWaitOptions(CLI::App* command, WaitOptions& wait) {
    CLI::Option* flag =
        command->add_flag("--wait", wait.wait, "Wait until the daemon has done it, and look at the result");
    command
        ->add_flag("--strict", wait.strict,
                   "With --wait: exit with 1 for files without readable metadata, too")
        ->needs(flag);
    command->add_option("--timeout", wait.timeout, "With --wait: give up after this many seconds")
        ->type_name("SECONDS")
        ->needs(flag)
        ->check(CLI::Range(1, INT_MAX));
}

CLI::Option* AddLibrary(CLI::App* command, Arguments& arguments) {
    return command
        ->add_option("--library", arguments.context.places.library,
                     "Another library of the same server, or '*' for all together")
        ->type_name("NAME")
        ->check([](const std::string& name) { return name.empty() ? "a library needs a name" : ""; });
}

void AddQuiet(CLI::App* command, Arguments& arguments) {
    command->add_flag("-q,--quiet", arguments.context.quiet, "Print nothing but what went wrong")
        ->excludes(command->get_option("--json"));
    // Whatever a command prints there is its result; what went wrong is told on the error stream.
    command->parse_complete_callback([&arguments] {
        if (arguments.context.quiet && freopen("/dev/null", "w", stdout) == nullptr)
            Complain("cannot open /dev/null: %s", strerror(errno));
    });
}

}  // namespace koli::ctl
