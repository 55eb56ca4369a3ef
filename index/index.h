// From a path to the handler of its format.
#pragma once

#include "base/file_reading.h"
#include "base/known_path.h"

namespace koli {

/// The handlers of a format.
///
/// `add` stores the file: 0 stored, 1 its metadata could not be parsed (logged by the handler; an entry with
/// the names from the path may have been stored all the same), anything else failure.  `reading` learns why.
/// `remove` removes the entry of a file that is gone: 0, or -1, also when the file still exists.
struct IndexHandler {
    int (*add)(const KnownPath& path, FileReading& reading);
    int (*remove)(const char* path);
};

/// The handlers of an extension, ignoring case; null when it is not in the table of formats, and for a null
/// `ext`.
const IndexHandler* IndexHandlerFind(const char* ext);

/// Whether the media store gets a file of this name from the guarded probe alone.
bool IndexIsProbed(const char* name);

/// Adds (kModeAdd) or removes (kModeDelete) one file, or records one directory.  Returns 0, the handler's
/// result, or -1: for bad arguments (logged), a name without extension, an AppleDouble companion ("._name"),
/// and metadata that could not be parsed (logged, and an event in the appliance's log).  A file of an unknown
/// kind is accepted with 0 and stored nowhere.
int IndexOnePath(const KnownPath& path, int mode);

}  // namespace koli
