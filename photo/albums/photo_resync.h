// The photo library is brought in step with the whole photo share: every row is marked as stale, every file
// that is found is indexed and so marked as fresh, and the rows that are still stale go.
#pragma once

namespace koli {

class FolderListing;

/// Resyncs `directory` and everything below it; null for the whole photo share, which ends with the sweep.
/// Hidden entries, "@eaDir", a share's own "#recycle", files without extension and entries whose path would
/// not fit into 4095 bytes are passed over, and so are directories that are already on the way from the top.
/// The sweep is left to the next resync when something could not be looked at, or moved meanwhile (see
/// resync_guard.h), and the resync ends early when the photo database takes no more changes.  Rows of what
/// stands in the "#recycle" stay.  Returns 0, or -1 when the share's link, the marking or the sweep failed
/// (logged).
int PhotoFolderResync(const char* directory);

/// Whether the last resync of the whole share could and did sweep; true before the first.  What it has not
/// seen may be about to move: no album may go for it either.
bool PhotoFolderResyncSawAll();

/// Indexes the entries of one directory whose name holds a '.'.  Those that the photo library or the media
/// store's videos know are looked at again, all others are added to both stores; what the media store does
/// not take is handed to the video converter.  Returns 0, or -1 for bad arguments and failures (logged),
/// before anything is indexed.
int PhotoFolderSync(const char* directory, const FolderListing* names);

/// The same; `*is_seen` tells whether each known picture was still there and could be looked at and stored.
int PhotoFolderSync(const char* directory, const FolderListing* names, bool* is_seen);

}  // namespace koli
