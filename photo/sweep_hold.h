// Whether a resync may sweep at its end at all.
#pragma once

namespace koli {

/// Renames of pictures wait behind the request that is executed next: what they will move looks stale until
/// then, so that no resync may sweep.
void ResyncSweepHold(bool is_held);
bool IsResyncSweepHeld();

}  // namespace koli
