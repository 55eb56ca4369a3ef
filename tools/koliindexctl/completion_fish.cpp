#include "tools/koliindexctl/completion.h"

namespace koli::ctl {
namespace {

constexpr const char kHead[] = R"(# fish completion for koliindexctl
# True for the command that is given, and without one as long as there is none.
function __koliindexctl_at
    set -l words (commandline -opc)
    for word in $words[2..-1]
        string match -q -- '-*' $word; and continue
        contains -- $word $argv
        return
    end
    test (count $argv) -eq 0
end
# The words behind what is written of a list with commas.
function __koliindexctl_list
    set -l list (commandline -ct | string replace -r '^--[^=]*=' '' | string match -r '.*,')
    printf '%s\n' "$list"$argv
end
complete -c koliindexctl -f
)";

std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text)
        quoted.append(c == '\'' || c == '\\' ? "\\" : "").append(1, c);
    return quoted + "'";
}

/// What is offered for a value; -f: no file names, -F: these alone.
std::string Offered(const CompletionValue& value) {
    switch (value.kind) {
        case CompletionValue::kNone:
        case CompletionValue::kAnything:
            return " -f";
        case CompletionValue::kFile:
            return " -F";
        case CompletionValue::kFolder:
            return " -f -a '(__fish_complete_directories (commandline -ct))'";
        case CompletionValue::kWord:
            return " -f -a " + Quoted(JoinedWords(value.words));
        case CompletionValue::kList:
            return " -f -a " + Quoted("(__koliindexctl_list " + JoinedWords(value.words) + ")");
        case CompletionValue::kCondition: {
            std::string begun;
            for (const std::string& word : value.words)
                begun.append(begun.empty() ? "" : " ").append(word).append("=");
            return " -f -a " + Quoted(begun);
        }
    }
    return "";
}

std::string Line(const std::string& command, const std::string& rest) {
    return "complete -c koliindexctl -n '__koliindexctl_at" + (command.empty() ? "" : " " + command) + "'" +
           rest + "\n";
}

std::string OptionLine(const std::string& command, const CompletionOption& option) {
    std::string names;
    for (const std::string& name : option.short_names)
        names += " -s " + name;
    for (const std::string& name : option.long_names)
        names += " -l " + name;
    const bool is_flag = option.value.kind == CompletionValue::kNone;
    return Line(command,
                names + (is_flag ? "" : " -r" + Offered(option.value)) + " -d " + Quoted(option.help));
}

}  // namespace

std::string FishCompletion(const std::vector<CompletionCommand>& commands) {
    std::string script = kHead;
    for (const CompletionCommand& command : commands) {
        if (!command.name.empty())
            script += Line("", " -a " + command.name + " -d " + Quoted(command.purpose));
        for (const CompletionOption& option : command.options)
            script += OptionLine(command.name, option);
        if (!command.arguments.empty()) script += Line(command.name, Offered(command.arguments.front()));
    }
    return script;
}

}  // namespace koli::ctl
