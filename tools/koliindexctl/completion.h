// Completion of the command line in a shell.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace koli::ctl {

/// A bash script that completes the sub-commands and options of `app`, words where only some are possible,
/// and file names elsewhere.
std::string BashCompletion(const CLI::App& app);

}  // namespace koli::ctl
