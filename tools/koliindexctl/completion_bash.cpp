#include "tools/koliindexctl/completion.h"

namespace koli::ctl {
namespace {

constexpr const char kHead[] = R"(# bash completion for koliindexctl
_koliindexctl() {
    local cur=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} command='' word
    local options='' kind='' words='' is_value=''
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [[ $word == -* ]] || { command=$word; break; }
    done
    # The shell takes '=' for a word of its own.
    if [[ $cur == = ]]; then
        cur=''
    elif [[ $before == = ]]; then
        before=${COMP_WORDS[COMP_CWORD-2]}
    fi
    case $command in
)";

constexpr const char kTail[] = R"(    esac
    COMPREPLY=()
    if [[ $cur == -* && -z $is_value ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur")
        return
    fi
    case $kind in
    file) compopt -o default 2>/dev/null ;; # as the shell completes them itself
    folder) compopt -o dirnames 2>/dev/null ;;
    word) mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur") ;;
    list)
        compopt -o nospace 2>/dev/null
        [[ $cur == *,* ]] && word=${cur%,*}, || word=''
        mapfile -t COMPREPLY < <(compgen -P "$word" -W "$words" -- "${cur##*,}")
        ;;
    condition)
        compopt -o nospace 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -S = -W "$words" -- "$cur")
        ;;
    esac
}
complete -F _koliindexctl koliindexctl
)";

const char* KindName(CompletionValue::Kind kind) {
    switch (kind) {
        case CompletionValue::kNone:
        case CompletionValue::kAnything:
            return "none";
        case CompletionValue::kFile:
            return "file";
        case CompletionValue::kFolder:
            return "folder";
        case CompletionValue::kWord:
            return "word";
        case CompletionValue::kList:
            return "list";
        case CompletionValue::kCondition:
            return "condition";
    }
    return "";
}

std::string Assignments(const CompletionValue& value) {
    return std::string("kind=") + KindName(value.kind) + " words='" + JoinedWords(value.words) + "'";
}

std::string NamesOf(const CompletionOption& option, const char* separator) {
    std::string names;
    for (const std::string& name : option.long_names)
        names.append(names.empty() ? "" : separator).append("--").append(name);
    return names;
}

/// The branch of a command: its options, and what comes behind one of them.
std::string CommandCase(const CompletionCommand& command, const CompletionValue& argument) {
    std::string options, values;
    for (const CompletionOption& option : command.options) {
        options.append(options.empty() ? "" : " ").append(NamesOf(option, " "));
        if (option.value.kind != CompletionValue::kNone)
            values +=
                "        " + NamesOf(option, " | ") + ") is_value=1 " + Assignments(option.value) + " ;;\n";
    }
    std::string text =
        "    " + (command.name.empty() ? "''" : command.name) + ")\n        options='" + options + "'\n";
    text += "        " + Assignments(argument) + "\n";
    if (!values.empty()) text += "        case $before in\n" + values + "        esac\n";
    return text + "        ;;\n";
}

}  // namespace

std::string BashCompletion(const std::vector<CompletionCommand>& commands) {
    CompletionValue names{CompletionValue::kWord, "COMMAND", {}};
    std::string cases;
    for (const CompletionCommand& command : commands) {
        if (command.name.empty()) continue;
        names.words.push_back(command.name);
        cases +=
            CommandCase(command, command.arguments.empty() ? CompletionValue{} : command.arguments.front());
    }
    return kHead + CommandCase(commands.front(), names) + cases + kTail;
}

}  // namespace koli::ctl
