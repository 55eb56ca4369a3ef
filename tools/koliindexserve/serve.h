// The command line of koliindexserve, and what it wires together.
#pragma once

namespace koli::serve {

/// Runs the program until SIGTERM or SIGINT; returns its exit code, one of koliindexctl's.
int ServeRun(int argc, char** argv);

}  // namespace koli::serve
