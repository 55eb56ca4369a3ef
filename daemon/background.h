// Becoming a daemon.
#pragma once

namespace koli {

/// Goes on in the background as daemon(0, 0) does: in a session of its own, with the root as its directory
/// and the standard streams at the null device.  The process that was started stays until StarterRelease or
/// the daemon's end, so that whoever started it finds what the daemon makes until then.  True with a
/// descriptor for StarterRelease in `*starter`, else false with errno set.
bool BackgroundEnter(int* starter);

/// Lets the process that was started end, with status 0.
void StarterRelease(int starter);

}  // namespace koli
