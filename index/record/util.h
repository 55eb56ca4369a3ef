// What every add and delete handler of the dispatch table shares.
#pragma once

#include "base/known_path.h"
#include "base/log.h"
#include "base/media_info.h"

namespace koli {

/// Fills what every record carries: path, file size, title from the file name, album from the folder's name,
/// times. The rest of the record stays as it is.  Returns 0, or -1 for a bad argument (logged) or a missing
/// file.
int MediaInfoFill(const KnownPath& path, MediaInfo* record);

/// Begins the record of a file as the handlers with a parser of their own do: refuses a missing or empty path
/// ("Bad parameter.", in the caller's name) and, silently, a file that is not there; else zeroes the record
/// and fills in path, file size and times.
bool MediaInfoBegin(const KnownPath& path, MediaInfo* record, LogSite site);

/// Fills title and album from the path: whatever stands in them, or only what is still empty.
enum class NamesFromPath { kPreset, kOnlyEmpty };
void MediaInfoNames(const char* path, NamesFromPath which, MediaInfo* record, LogSite site);

/// The tail of an add handler: saves the record.  `result` is what the handler has so far, 1 when the
/// metadata could not be parsed, else the value to return for a failed save.  A failed save logs `failure`
/// (the record's path for a text that wants it) and returns `result` as it stands; success
/// returns 0, or 1 when `result` is 1.
int SaveMediaInfo(int type, const MediaInfo& record, int result, LogSite site, LogText<1> failure);

/// What a delete handler does with a removal that the store refused.
enum class RemoveFailure { kIsError, kIsReportedOnly };

/// The delete handler: refuses to remove the row of a file that still exists, or may (logged, -1), else
/// removes it.
/// A refused removal logs `failure` (path) and returns -1 or, when only reported, 0.
int DeleteMediaInfo(int type, const char* path, LogSite site, LogText<1> failure, RemoveFailure on_failure);

}  // namespace koli
