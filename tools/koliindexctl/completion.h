// Completion scripts of shells, made from the one declaration of the command line.
#pragma once

#include <string>
#include <vector>

#include "tools/koliindexctl/arguments.h"

namespace koli::ctl {

/// What may stand for the value of an option or for an argument.
struct CompletionValue {
    enum Kind { kNone, kAnything, kFile, kFolder, kWord, kList, kCondition } kind = kNone;
    std::string name;  // as the help calls it
    std::vector<std::string> words;
};

struct CompletionOption {
    std::vector<std::string> short_names, long_names;  // without their hyphens
    std::string help;
    CompletionValue value;  // kNone: a flag
    bool repeats = false;
};

/// A sub-command, or with no name the program itself.
struct CompletionCommand {
    std::string name, purpose;
    std::vector<CompletionOption> options;
    std::vector<CompletionValue> arguments;
    bool repeats = false;  // the last argument
};

/// The program first, then its commands; nothing that is hidden.
std::vector<CompletionCommand> CompletionCommands(const CLI::App& app, const Arguments& arguments);

std::string JoinedWords(const std::vector<std::string>& words);  ///< with blanks between

std::string BashCompletion(const std::vector<CompletionCommand>& commands);
std::string ZshCompletion(const std::vector<CompletionCommand>& commands);
std::string FishCompletion(const std::vector<CompletionCommand>& commands);

}  // namespace koli::ctl
