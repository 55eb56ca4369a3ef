// The command line of koliindexctl: sub-commands, options, help.
#pragma once

namespace koli::ctl {

/// Runs the program; returns its exit code.
int CommandLineRun(int argc, char** argv);

}  // namespace koli::ctl
