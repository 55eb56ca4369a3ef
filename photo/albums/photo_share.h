// Albums: every directory of the photo share down to the second level is one, with a row in the table
// photo_share.
//
// Every path is a real path of the photo share ("/volume1/photo/Trip"); an album's name is the part behind
// "/volume1/photo/".  A step that fails for good leaves the earlier ones applied; when the database refuses,
// nothing of the call takes effect.
#pragma once

namespace koli {

class CaptionHold;

/// What PhotoShareUpdate does.
enum AlbumOperation : int { kAlbumCreate = 1, kAlbumDelete = 2 };

/// Creates the album of a directory, public or not as its caption or the machine's setting says, a sub-album
/// with the public flag and the rights of its album; or deletes the album and its sub-albums, and with the
/// share's top all albums.  A path that is no album or lies on another volume than the share, and creating
/// one in the share's "#recycle" or in an "@eaDir", does nothing.  Returns 0, or -1 for bad arguments and
/// failures (logged), such as creating an album that exists, or one whose caption cannot be read.
int PhotoShareUpdate(const char* path, int operation);

/// Renames the album of a renamed directory, its sub-albums, and what its cover's path says, even when the
/// directory has moved on from there already.  Between the levels, the sub-albums are dropped or created; in
/// and out of the share's "#recycle" they stay with their album.  What stands at the new name gives way,
/// unless the old directory is there again: then nothing is renamed, and the album at the new name becomes no
/// more public than the old one.  An album that goes deeper keeps its row under its new name, with what
/// people entered, until it comes back or the next resync finds it stale.  When the old path has no album, or
/// lies in another share, albums are created for the new one.  Returns 0 when an album was renamed, else -1
/// (failures and bad arguments are logged).
int PhotoShareRename(const char* new_path, const char* old_path);

/// Creates the album of a directory and the albums of the directories inside it; for the share's top those of
/// all its directories.  Albums that exist are logged and stay.  Returns 0, or -1 for a bad argument
/// (logged).
int PhotoShareWalk(const char* path);

/// Brings the albums in step with the directories: marks every album as stale, marks those whose directory is
/// found as fresh, creates the missing ones and deletes the stale ones.  With the path of a top-level album
/// only its sub-albums are marked or created.  Stale albums wait for the next resync when something could not
/// be looked at, or moved meanwhile, here or in the photos' resync before (see resync_guard.h).  Those of
/// folders in the "#recycle" stay.  Returns 0, or -1 when the share's link, the marking or the
/// sweep failed (logged).
int PhotoShareResync(const char* path);

/// The steps of the resync.  Mark all albums, or with a name the album's sub-albums, as stale: 0, or -1 on
/// failure (logged by the caller for all, here for one album).
int PhotoShareMarkAll(const char* album);
/// Mark an album as fresh, or create it: -1, always.
int PhotoShareMark(const char* album);
/// Delete the stale albums, or with a name the album's stale sub-albums: results as PhotoShareMarkAll.
int PhotoShareSweep(const char* album);

/// Reads the public flag that was handed over for an album.  Its file is left to `captions`.
/// Returns 1 when there was one, else 0.
int PhotoSharePublicGet(const char* path, char* buffer, int size, CaptionHold& captions);

}  // namespace koli
