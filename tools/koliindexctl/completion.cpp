#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdio>

#include "platform/host/tables.h"
#include "tools/koliindexctl/commands.h"

namespace koli::ctl {
namespace {

constexpr const char kHead[] = R"(# bash completion for koliindexctl
_koliindexctl() {
    local cur=${COMP_WORDS[COMP_CWORD]} command='' options='' words='' word
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $word in
            -*) ;;
            *) command=$word; break ;;
        esac
    done
    COMPREPLY=()
    case $command in
)";

constexpr const char kTail[] = R"(        *) return ;;
    esac
    [[ ${COMP_WORDS[COMP_CWORD-1]} == --kind ]] && words='music video photo playlist'
    if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur")
    elif [[ -n $words ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
    else
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
    fi
}
complete -F _koliindexctl koliindexctl
)";

/// The long names of all options that are not hidden, separated by blanks.
std::string OptionsOf(const CLI::App& app) {
    std::string names;
    for (const CLI::Option* option :
         app.get_options([](const CLI::Option* one) { return !one->get_group().empty(); }))
        for (const std::string& name : option->get_lnames())
            names.append(names.empty() ? "" : " ").append("--").append(name);
    return names;
}

std::string CommandsOf(const CLI::App& app) {
    std::string names;
    for (const CLI::App* command : app.get_subcommands({}))
        names.append(names.empty() ? "" : " ").append(command->get_name());
    return names;
}

/// What a sub-command takes where it takes no file.
std::string WordsOf(const std::string& command) {
    if (command == "rebuild") return "music video photo all";
    if (command == "completion") return "bash";
    std::string tables;
    if (command != "truncate") return tables;
    for (const char* table : host::kMediaTables)
        tables.append(table).append(" ");
    for (const char* table : host::kPhotoTables)
        tables.append(table).append(" ");
    return tables;
}

std::string Case(const std::string& pattern, const std::string& options, const std::string& words) {
    return "        " + pattern + ") options='" + options + "' words='" + words + "' ;;\n";
}

/// A script that completes the sub-commands and options of `app`, words where only some are possible, and
/// file names elsewhere.
std::string BashCompletion(const CLI::App& app) {
    std::string script = kHead + Case("''", OptionsOf(app), CommandsOf(app));
    for (const CLI::App* command : app.get_subcommands({}))
        script += Case(command->get_name(), OptionsOf(*command), WordsOf(command->get_name()));
    return script + kTail;
}

}  // namespace

void AddCompletion(CLI::App& app, Arguments& a) {
    CLI::App* completion = app.add_subcommand("completion", "Print the completion script of a shell");
    completion->add_option("SHELL", a.first, "bash")->required()->check(CLI::IsMember({"bash"}));
    SetWork(completion, a, [&app] {
        printf("%s", BashCompletion(app).c_str());
        return kExitDone;
    });
}

}  // namespace koli::ctl
