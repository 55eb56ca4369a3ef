// Work for the thumbnail maker and the video converter: queue files, one path per line, and a signal.
#pragma once

#include "base/known_path.h"

namespace koli {

/// What to ask for, as a bit set.
enum ConversionFlags : int { kConvertThumbnail = 1, kConvertFlv = 2 };

/// Puts a line into a queue file under its lock, unless it stands there already.  A missing file is created.
/// The wait for the lock has no limit; a file that may not be opened is tried 17 times, a second apart.
/// Returns 0 when the line is in the queue, -1 when not: null arguments and entries that would not be one
/// line of at most 4095 bytes (silently), or a failure (logged).
int WriteThumbQueue(const char* entry, const char* queue);

/// Queues a directory, or one file, for what `flags` asks, and wakes the daemon asked last with SIGUSR1.  For
/// the thumbnail maker a picture stands for its directory.  Files that neither daemon can use, and daemons
/// that do not run (logged), get nothing.
void ConversionRequest(const KnownPath& path, int flags);

/// Runs the video converter on `path` and waits for it.  Of what exists it is handed regular files only: a
/// FIFO named like a film would hold it up, and with it the queue.  It is told of what is gone.
void FlvConvert(const KnownPath& path);

}  // namespace koli
