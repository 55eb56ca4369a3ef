// The two ends of a guarded probe: what its child does, and what of that is believed.
#pragma once

#include <sys/types.h>

#include "base/file_reading.h"
#include "base/media_info.h"
#include "video/metamedia.h"

namespace koli {

inline constexpr char kProbeUnguarded[] = "the probe cannot be guarded";

/// What the child of `parent` does: opens the file with the daemon's rights, gives those up, and probes it.
/// Returns its exit status.
int ProbeInChild(const char* path, MediaInfo* record, FileReading& reading, ProbeFunction probe,
                 pid_t parent);

/// Takes over what a probe may write.  A child that was taken over may have left anything in `shared`: the
/// rest of the record (path, size, times, cover, ...) stays the caller's, and the texts end where they must.
void ProbedFieldsTake(const MediaInfo& shared, MediaInfo* record);

}  // namespace koli
