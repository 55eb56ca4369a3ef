// What the command line fills in, and what all its commands are declared with.
#pragma once

#include <CLI/App.hpp>
#include <string>
#include <vector>

#include "tools/ctl/context.h"
#include "tools/ctl/list.h"
#include "tools/ctl/setup.h"
#include "tools/ctl/sync.h"
#include "tools/serve/options.h"

namespace koli::ctl {

/// What the parser fills in.
struct Arguments {
    Context context;
    std::vector<std::string> paths;
    std::string first, second;  // single positional arguments
    bool is_sure = false;
    bool is_service = false;  // of the queue, for one caller
    SyncOptions sync;
    ListOptions list;
    SetupOptions setup;
    serve::ServeOptions serve;
    std::vector<std::string> words;  // behind the sub-command, as they were typed
    int exit_code = kExitDone;
};

/// A sub-command with --json and an example of its use, without the program's name.
CLI::App* AddCommand(CLI::App& app, const char* name, const char* purpose, const char* example,
                     Arguments& arguments);

/// --wait and what belongs to it.
void AddWaitOptions(CLI::App* command, WaitOptions& wait);

/// A sub-command's work, which gives the exit code.
template <typename Work>
void SetWork(CLI::App* command, Arguments& arguments, Work work) {
    command->callback([&arguments, work] { arguments.exit_code = work(); });
}

}  // namespace koli::ctl
