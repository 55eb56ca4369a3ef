// The walk: one index mode applied to a path and everything below it.
#pragma once

#include "base/known_path.h"

namespace koli {

/// Applies `mode` (IndexMode) to `path`, and for an existing directory to its whole tree, in the stores that
/// `types` names (WalkTypes).  With kModeDelete the file system is not read; with kModeRebuild `path` is
/// ignored and may be null, and `types` names the shares (RebuildTypes).  Returns 0, always: what fails is
/// logged, and the walk goes on with the next entry.  It does nothing for a store that refuses changes
/// (KOLIDBRefusing), and ends when all of its stores do.
///
/// Skipped are a share's own "#recycle", every "@eaDir", entries whose path would not fit into 4095 bytes,
/// and a directory that is already on the way from the top (links that point upwards).
int IndexWalk(const KnownPath& path, int mode, int types);

/// Adds the files of a tree, not its folders, to the media store.
void IndexFilesBelow(const char* directory);

/// Brings the media store's rows at and below an existing directory into step with it: what is there is
/// stored anew, and what was not stored is removed at the end.  Below a folder that could not be read to its
/// end nothing is removed, and nothing at all when the store refuses meanwhile, or `directory` is no longer
/// the one that it was.  One that cannot be opened is logged and keeps its rows.
void IndexTreeAgain(const char* directory);

/// The same for the directory that `share_link` points to.  A null or unreadable link is ignored.
void ReindexShare(const char* share_link);

}  // namespace koli
