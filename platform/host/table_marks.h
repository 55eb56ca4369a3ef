// The table-changed marks of the media store (KOLIIndexMusicTableDirtySet and its like).
#pragma once

namespace koli::host {

/// Told of each statement that changed rows of `table`; sets the mark of music and of video.
void MediaTableChanged(const char* table);

}  // namespace koli::host
