// The walk: one index mode applied to a path and everything below it.
#pragma once

namespace koli {

/// Applies `mode` (IndexMode) to `path`, and for an existing directory to its whole tree, in the stores that
/// `types` names (WalkTypes).  With kModeDelete the file system is not read; with kModeRebuild `path` is
/// ignored and may be null, and `types` names the shares (RebuildTypes).  Returns 0, always: what fails is
/// logged, and the walk goes on with the next entry.
///
/// Skipped are a share's own "#recycle", every "@eaDir", entries whose path would not fit into 4095 bytes,
/// and a directory that is already on the way from the top (links that point upwards).
int IndexWalk(const char* path, int mode, int types);

/// Forgets everything below the directory that `share_link` points to and indexes it again, in the media
/// store alone.  A null or unreadable link is ignored; a target that cannot be opened is logged and keeps its
/// entries.
void ReindexShare(const char* share_link);

}  // namespace koli
