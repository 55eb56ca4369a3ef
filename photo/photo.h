// Pictures in the media store: the handlers of the dispatch table.
#pragma once

#include "base/file_reading.h"
#include "base/known_path.h"

namespace koli {

/// Stores the media record of a picture.  Returns 0, also for a path inside "@eaDir", which is not stored; -1
/// for a null path (logged), a missing file, or a record that the store refused (logged).
int PhotoMediaAdd(const KnownPath& path, FileReading& reading);

/// Removes a picture that is gone from the media store.  Returns 0, also when the store refused (logged); -1
/// for a null path or a file that still exists (logged).
int PhotoMediaDelete(const char* path);

}  // namespace koli
