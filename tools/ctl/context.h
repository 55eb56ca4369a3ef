// What every command of koliindexctl shares.
#pragma once

#include <string>

#include "platform/paths.h"

namespace koli::ctl {

/// The exit codes, as --help and the manual list them.
enum ExitCode : int {
    kExitDone = 0,  // done, or everything is in step
    // Done, but something is not stored or was not found, or there are differences or problems.
    kExitDifferences = 1,
    kExitUsage = 2,     // wrong usage, or a path that cannot be queued or watched; nothing was queued
    kExitNoDaemon = 3,  // the daemon does not run or cannot be woken; requests were queued all the same
    // The spool, a folder or another file could not be read or written; only what did not need it was done.
    kExitFiles = 4,
    kExitDatabase = 5  // a database could not be read or mended; what was queued before is kept
};

/// Where the daemon is met.
struct Places {
    std::string queue = paths::kQueue;
    std::string batch = paths::kBatch;
    std::string pid_file = paths::kPidFile;
    std::string databases = {};  // directory; '' = as the machine's settings say
    std::string state_file = paths::kState;
    std::string service = paths::kQueueService;
    std::string reading_file = paths::kReading;
    std::string progress = paths::kProgress;
    std::string watchers = paths::kWatchers;
    std::string library = {};  // on a server, "*" = all; '' = as the settings say
};

struct Context {
    Places places;
    bool json = false;   // machine-readable output
    bool quiet = false;  // nothing but what went wrong, and that on the error stream
};

/// Writes one line "koliindexctl: ..." to the error stream, control characters escaped.
void Complain(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace koli::ctl
