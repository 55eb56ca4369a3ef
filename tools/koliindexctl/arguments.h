// What the command line fills in, and what all its commands are declared with.
#pragma once

#include <CLI/App.hpp>
#include <map>
#include <string>
#include <vector>

#include "tools/ctl/context.h"
#include "tools/ctl/copy_database.h"
#include "tools/ctl/list.h"
#include "tools/ctl/setup.h"
#include "tools/ctl/setup_server.h"
#include "tools/ctl/sync.h"
#include "tools/serve/options.h"

namespace koli::ctl {

/// The words that a value is made of, for completion.
struct Offer {
    enum Form {
        kWord,      // one of them
        kList,      // some of them, with commas between
        kCondition  // one of them, and what follows, an operator first
    } form = kWord;
    std::vector<std::string> words;
};

/// What the parser fills in.
struct Arguments {
    Context context;
    std::vector<std::string> paths;
    std::string first, second;  // single positional arguments
    bool is_sure = false;
    bool is_service = false;                        // of the queue, for one caller
    bool is_following = false, is_metrics = false;  // of status
    SyncOptions sync;
    ListOptions list;
    SetupOptions setup;
    ServerSetupOptions server_setup;
    CopyOptions copy;
    serve::ServeOptions serve;
    std::vector<std::string> words;  // behind the sub-command, as they were typed
    std::map<const CLI::Option*, Offer> offers;
    int exit_code = kExitDone;
};

/// A sub-command with --json and an example of its use, without the program's name.
///
/// What a value is called in the help (type_name of an option, the name of a positional argument) also tells
/// completion what to offer for it: file names for PATH, FILE, OLD and NEW, folders for FOLDER, SHARE and
/// VOLUME, nothing else unless it has an Offer.
CLI::App* AddCommand(CLI::App& app, const char* name, const char* purpose, const char* example,
                     Arguments& arguments);

/// Refuses every value that is none of the words, which completion offers.
CLI::Option* TakesOneOf(CLI::Option* option, std::vector<std::string> words, Arguments& arguments);

/// --wait and what belongs to it.
void AddWaitOptions(CLI::App* command, WaitOptions& wait);

/// --library, for commands that ask what is stored.
CLI::Option* AddLibrary(CLI::App* command, Arguments& arguments);

/// --quiet, for commands that are asked to do something.
void AddQuiet(CLI::App* command, Arguments& arguments);

/// A sub-command's work, which gives the exit code.
template <typename Work>
void SetWork(CLI::App* command, Arguments& arguments, Work work) {
    command->callback([&arguments, work] { arguments.exit_code = work(); });
}

}  // namespace koli::ctl
