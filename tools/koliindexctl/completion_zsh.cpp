#include "tools/koliindexctl/completion.h"

namespace koli::ctl {
namespace {

constexpr const char kHead[] = R"(#compdef koliindexctl
_koliindexctl() {
    local curcontext=$curcontext state line
    typeset -A opt_args
    local -a commands=(
)";

constexpr const char kTail[] = R"(        esac
        ;;
    esac
}
# As a file of completions it is the function's own first call; sourced, it tells the shell of it.
if [[ $funcstack[1] == _koliindexctl ]]; then
    _koliindexctl "$@"
else
    compdef _koliindexctl koliindexctl
fi
)";

/// Between single quotes; `special` are the characters that need a backslash there.
std::string Quoted(const std::string& text, const char* special) {
    std::string quoted = "'";
    for (const char c : text) {
        if (c == '\'')
            quoted += R"('\'')";
        else
            quoted.append(std::string_view(special).find(c) != std::string_view::npos ? "\\" : "")
                .append(1, c);
    }
    return quoted + "'";
}

/// ":NAME:WHAT TO OFFER"
std::string Action(const CompletionValue& value) {
    const std::string words = JoinedWords(value.words);
    switch (value.kind) {
        case CompletionValue::kNone:
            return "";
        case CompletionValue::kAnything:
            return ":" + value.name + ": ";
        case CompletionValue::kFile:
            return ":" + value.name + ":_files";
        case CompletionValue::kFolder:
            return ":" + value.name + ":_files -/";
        case CompletionValue::kWord:
            return ":" + value.name + ":(" + words + ")";
        case CompletionValue::kList:
            return ":" + value.name + ":_values -s , " + value.name + " " + words;
        case CompletionValue::kCondition:
            return ":" + value.name + ":compadd -S = - " + words;
    }
    return "";
}

std::string OptionSpec(const CompletionOption& option) {
    const bool ends = option.long_names.front() == "help" || option.long_names.front() == "version";
    std::vector<std::string> names;
    for (const std::string& name : option.short_names)
        names.push_back("-" + name);
    for (const std::string& name : option.long_names)
        names.push_back("--" + name + (option.value.kind == CompletionValue::kNone ? "" : "="));
    const std::string text = Quoted(option.help, "[]:\\");
    const std::string what = "[" + text.substr(1, text.size() - 2) + "]" + Action(option.value) + "'";
    std::string specs;
    for (const std::string& name : names) {
        const std::string before = ends               ? "(- *)"
                                   : option.repeats   ? "*"
                                   : names.size() > 1 ? "(" + JoinedWords(names) + ")"
                                                      : "";
        specs.append(" \\\n            '").append(before).append(name).append(what);
    }
    return specs;
}

std::string ArgumentsCall(const CompletionCommand& command) {
    std::string text = "_arguments";
    for (const CompletionOption& option : command.options)
        text += OptionSpec(option);
    for (size_t i = 0; i < command.arguments.size(); ++i) {
        const bool is_many = command.repeats && i + 1 == command.arguments.size();
        text += " \\\n            '" + (is_many ? "*" : std::to_string(i + 1)) +
                Action(command.arguments[i]) + "'";
    }
    return text;
}

}  // namespace

std::string ZshCompletion(const std::vector<CompletionCommand>& commands) {
    std::string names, cases;
    for (const CompletionCommand& command : commands) {
        if (command.name.empty()) continue;
        names += "        " + Quoted(command.name + ":" + command.purpose, "\\") + "\n";
        cases +=
            "        " + command.name + ")\n            " + ArgumentsCall(command) + "\n            ;;\n";
    }
    std::string program = ArgumentsCall(commands.front());
    program.insert(program.find(' '), " -C");
    return kHead + names + "    )\n    " + program +
           " \\\n            '1:COMMAND:->command' '*::ARGUMENT:->argument'\n"
           "    case $state in\n    command) _describe command commands ;;\n    argument)\n        case $line[1] in\n" +
           cases + kTail;
}

}  // namespace koli::ctl
