// The sub-commands, in the order of --help.
#pragma once

#include "tools/koliindexctl/arguments.h"

namespace koli::ctl {

void AddRequests(CLI::App& app, Arguments& a);         ///< add, remove, rename, enqueue
void AddLibraryRequests(CLI::App& app, Arguments& a);  ///< rebuild, resync, truncate
void AddSync(CLI::App& app, Arguments& a);
void AddRepair(CLI::App& app, Arguments& a);
void AddStatus(CLI::App& app, Arguments& a);
void AddQueries(CLI::App& app, Arguments& a);  ///< show, list, search, stats, problems
void AddCharset(CLI::App& app, Arguments& a);
void AddWhy(CLI::App& app, Arguments& a);
void AddMachine(CLI::App& app, Arguments& a);  ///< watch, setup
void AddServe(CLI::App& app, Arguments& a);
void AddCompletion(CLI::App& app, Arguments& a);
void AddHelp(CLI::App& app, Arguments& a);  ///< after all others, which it can explain

/// The commands that have been added.
std::vector<std::string> CommandNames(const CLI::App& app);

}  // namespace koli::ctl
