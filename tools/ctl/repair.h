// repair: saves what can be read from a damaged database into a new one.
#pragma once

#include "tools/ctl/submit.h"

namespace koli::ctl {

struct RepairOptions {
    bool dry_run = false;  // say what is damaged, touch nothing
    WaitOptions wait = {};
};

/// Checks both databases from end to end.  Each damaged one is replaced by a new one with the rows that could
/// be read, and kept under a name with the date; then what `sync` finds is queued.  A repair that was killed
/// is gone on with. Returns an ExitCode: that of `sync`, or kExitDifferences when something that no file
/// tells is lost, or when a dry run found damage; kExitDatabase for one that cannot be looked at or must not
/// be touched now, kExitFiles when the new one could not be written.
int Repair(const Context& context, const RepairOptions& options);

}  // namespace koli::ctl
