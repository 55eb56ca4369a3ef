// The photo library is brought in step with the whole photo share: every row is marked as stale, every file
// that is found is indexed and so marked as fresh, and the rows that are still stale go.
#pragma once

namespace koli {

class FolderListing;

/// Resyncs `directory` and everything below it; null for the whole photo share, which ends with the sweep.
/// Hidden entries, "@eaDir", a share's own "#recycle", files without extension and entries whose path would
/// not fit into 4095 bytes are passed over, and so are directories that are already on the way from the top.
/// A directory that is there but cannot be listed is logged; the sweep is then left to the next resync.
/// Returns 0, or -1 when the share's link, the marking or the sweep failed (logged).
int PhotoFolderResync(const char* directory);

/// Indexes the entries of one directory whose name holds a '.'.  Those that the photo library or the media
/// store's videos know are looked at again, all others are added to both stores; what the media store does
/// not take is handed to the video converter.  Returns 0, or -1 for bad arguments and failures (logged),
/// before anything is indexed.
int PhotoFolderSync(const char* directory, const FolderListing* names);

}  // namespace koli
