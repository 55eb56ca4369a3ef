#include "tools/koliindexctl/completion.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <cstdio>

#include "tools/koliindexctl/commands.h"
#include "tools/koliindexctl/help_format.h"

namespace koli::ctl {
namespace {

CompletionValue::Kind KindOf(const std::string& name) {
    if (name.empty()) return CompletionValue::kNone;
    for (const char* file : {"PATH", "FILE", "OLD", "NEW"})
        if (name == file) return CompletionValue::kFile;
    for (const char* folder : {"FOLDER", "SHARE", "VOLUME"})
        if (name == folder) return CompletionValue::kFolder;
    return CompletionValue::kAnything;
}

CompletionValue ValueOf(const CLI::Option* option, const Arguments& arguments) {
    CompletionValue value;
    value.name = option->get_positional() ? option->get_name(true, false) : PlaceholderOf(*option);
    const auto offer = arguments.offers.find(option);
    if (offer == arguments.offers.end()) {
        value.kind = KindOf(value.name);
        return value;
    }
    value.words = offer->second.words;
    value.kind = offer->second.form == Offer::kWord   ? CompletionValue::kWord
                 : offer->second.form == Offer::kList ? CompletionValue::kList
                                                      : CompletionValue::kCondition;
    return value;
}

bool Repeats(const CLI::Option& option) {
    return option.get_items_expected_max() > 1 ||
           option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
}

CompletionCommand CommandOf(const CLI::App& app, const Arguments& arguments) {
    CompletionCommand command{app.get_name(), app.get_description(), {}, {}};
    for (const CLI::Option* option :
         app.get_options([](const CLI::Option* one) { return !one->get_group().empty(); })) {
        const CompletionValue value = ValueOf(option, arguments);
        if (option->get_positional()) {
            command.arguments.push_back(value);
            command.repeats = Repeats(*option);
        } else {
            command.options.push_back({option->get_snames(), option->get_lnames(), option->get_description(),
                                       value, Repeats(*option)});
        }
    }
    return command;
}

}  // namespace

std::string JoinedWords(const std::vector<std::string>& words) {
    return CLI::detail::join(words, " ");
}

std::vector<CompletionCommand> CompletionCommands(const CLI::App& app, const Arguments& arguments) {
    std::vector<CompletionCommand> commands{CommandOf(app, arguments)};
    commands.front().name.clear();
    for (const CLI::App* command : app.get_subcommands({}))
        commands.push_back(CommandOf(*command, arguments));
    return commands;
}

void AddCompletion(CLI::App& app, Arguments& a) {
    CLI::App* completion = app.add_subcommand("completion", "Print the completion script of a shell");
    TakesOneOf(completion->add_option("SHELL", a.first, "bash, zsh or fish")->required(),
               {"bash", "zsh", "fish"}, a);
    completion->footer("Example:\n  . <(koliindexctl completion bash)\n");
    SetWork(completion, a, [&app, &a] {
        const std::vector<CompletionCommand> commands = CompletionCommands(app, a);
        const std::string script = a.first == "bash"  ? BashCompletion(commands)
                                   : a.first == "zsh" ? ZshCompletion(commands)
                                                      : FishCompletion(commands);
        printf("%s", script.c_str());
        return kExitDone;
    });
}

}  // namespace koli::ctl
