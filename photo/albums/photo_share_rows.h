// What the albums' code reads from the table photo_share, and how it runs its statements.
#pragma once

#include "base/log.h"
#include "photo/albums/sql_text.h"
#include "platform/kolidb.h"

namespace koli {

/// Runs a statement of the albums.  Returns the number of rows it affected, or -1 when it failed, which is
/// logged as
/// "Failed to exec [%s]", or for a null statement, whose making has been logged.
int AlbumExec(const SqlText& sql, LogSite site);

/// The rows of a table, all columns; null when they could not be read (logged).  `order` may be null; a
/// `limit` of 0 means all rows.
SqlRows AlbumRowsOpen(int table, const char* where, const char* order, int limit, LogSite site);

/// The row of the album, as AlbumRowsOpen gives it; no row when there is no such album.
SqlRows AlbumRowOpen(const char* album, int limit, LogSite site);

/// Whether there is an album of that name; false also when the database cannot tell (logged).
bool IsAlbum(const char* album);

/// Whether the album has a row, or anything below it has.
bool HasAlbums(const char* album);

/// Deletes an album and its sub-albums, but for the one named `but`, null for none.  Returns 0, or -1 on
/// failure (logged).
int AlbumsDelete(const char* album, const char* but);

/// The text of a column of the album's row, cut to `size` bytes.  Returns 0, or -1 when there is no such row
/// or column, and on failure (logged).
int KOLIPhotoShareGetFieldValue(const char* album, const char* column, char* buffer, int size);

/// The number for a new album: the highest one plus 1, 1 when there are none or they cannot be read (logged).
int PhotoShareNextId();

}  // namespace koli
