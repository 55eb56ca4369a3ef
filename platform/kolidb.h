// libkolidb: the appliance's databases.  The media store holds one row per media file and per folder; the
// photo database holds the photo library and its albums.
//
// Nothing here throws.  Rows may be committed in groups: KOLIDBFlush closes the open group, KOLIDBSync also
// puts what has been accepted on the disk.  Pointers passed in are only read during the call unless said
// otherwise.
#pragma once

#include <stddef.h>

#include "base/media_info.h"
#include "base/photo_record.h"

extern "C" {

// ---- Media store -----------------------------------------------------------------------------------------

/// Inserts or replaces the row of `record->path` in the table of `type` (StoreType 0 to 3).  A save that
/// would leave the row as it is writes nothing.  Returns 0, or nonzero on failure.
int MediaInfoDBSave(int type, const koli::MediaInfo* record);

/// Cleans a filled record in place before its save: text that is only white space is emptied, control
/// characters become blanks, impossible numbers become 0.  Its result means nothing.
int MediaInfoValid(koli::MediaInfo* record);

/// Removes the row of a file (type 0 to 3), or with type 5 the rows of `path` itself and of everything below
/// `path`/ in all five tables.  Returns 0 (also when there was no row), or nonzero on failure.
int MediaInfoDBDelete(int type, const char* path);

/// Records the directory `path`.  Returns 0, or nonzero on failure.
int MediaInfoDBDirSave(const char* path);

/// What a problem is, as bits.
enum KOLIProblem {
    KOLI_PROBLEM_PASSES = 1,  // its reason passes by itself: the file is worth another try
    KOLI_PROBLEM_PHOTOS = 2   // it is the photo library's and not the media store's
};

/// Records why something at `path`, or that goes with it (a cover, a caption), could not be read or written,
/// in place of what was recorded before; `kind` is a set of KOLIProblem.  Clear tells that nothing is wrong
/// any more, for the photo library with KOLI_PROBLEM_PHOTOS, else with 0 for the media store; both problems
/// go with the row of the path.
void KOLIProblemSet(const char* path, const char* reason, int kind);
void KOLIProblemClear(const char* path, int kind);

/// A rebuild of the rows at and below `path`: from Begin to End the store remembers what is saved, and End
/// removes the rest, in all five tables.  Nothing is removed at or below a path that was missed: a folder
/// that could not be read to its end, or an entry that could not be looked at.  Begin sets the table-changed
/// marks of the tables that have rows there.  One rebuild at a time; it costs some 10 bytes of memory for
/// each row that is saved.  Outside of a rebuild Miss and End do nothing.
void MediaRebuildBegin(const char* path);
void MediaRebuildMiss(const char* path);

/// Nonzero when the last row saved since Begin is that of `path`.
int MediaRebuildSavedLast(const char* path);

/// Ends the rebuild.  With `is_certain` 0 nothing is removed, nor when the media store refuses.  Returns 0,
/// or -1 when it could not be done to its end (logged, except that the store refuses).
int MediaRebuildEnd(int is_certain);

/// Compact the databases.  Negative on failure.
int MediaDBVacuum(void);
int PhotoDBVacuum(void);

/// Commits the rows of the open groups of both databases.  Call it before anything slow (a child, an external
/// program, waiting for a lock).  Returns 0 or -1; a failure has been logged.
int KOLIDBFlush(void);

/// KOLIDBFlush, then makes sure that everything accepted so far survives a power cut; nothing is done when
/// nothing was written since the last time (nothing is known of the time before the first).  Returns 0, or -1
/// (logged), also when one of them refuses: the batch must be repeated.
int KOLIDBSync(void);

/// Makes durable what the photo database has accepted so far, for a caller about to remove where it came
/// from, or the rows that it has not marked.  Returns 0, 1 when it has to wait for the end of a unit, or -1
/// when it failed (logged) and as long as the next KOLIDBSync will tell of lost rows.
int PhotoDBHarden(void);

// ---- Batches ---------------------------------------------------------------------------------------------

/// The databases, as bits of a set.
enum KOLIDatabase { KOLI_MEDIA_DB = 1, KOLI_PHOTO_DB = 2 };

/// A batch is begun: both databases take changes again.
void KOLIDBBatchBegin(void);

/// The databases that have refused a change or a look-up since KOLIDBBatchBegin for a reason that passes:
/// locked by another program, full, failing to read or write, out of reach.  Such a database takes no further
/// change until the next KOLIDBBatchBegin, as nothing may overtake what it has refused: each operation on it
/// fails at once and without a log line, and the next KOLIDBSync fails.  What fails for good (a damaged
/// database, no permission) is not counted here.
int KOLIDBRefusing(void);

/// Why a database of KOLIDBRefusing refuses, in the engine's words; "" when it does not.
const char* KOLIDBRefusalGet(int database);

/// Commits the groups of both databases that have been open for a while.  Costs next to nothing: for every
/// line of a batch and every entry of a walk, so that no lock is held while the batch works on something
/// else.
void KOLIDBTick(void);

/// What is changed in the photo database between Begin and End takes effect together; units may lie in each
/// other.  Inside a unit nothing is committed once something was changed or removed, whatever else asks for
/// it; what is merely added (PhotoInfoDBSave) may be.  PhotoDBUnitEnd(0) takes back what was changed since
/// its Begin. Returns 0, or -1 when nothing of the unit takes effect (the database refuses).
void PhotoDBUnitBegin(void);
int PhotoDBUnitEnd(int keep);

/// How far a batch has come in the photo database.
struct KOLIBatchMark {
    int64_t offset;  // bytes of the batch that have been executed, 0 = none
    uint64_t hash;   // of these bytes
};

/// Reads the mark as it was committed last.  Returns 0, or -1 when there is none or it cannot be read.
int PhotoDBMarkGet(KOLIBatchMark* mark);

/// Sets the mark that is written with the next changes, in the same transaction.
void PhotoDBMarkSet(const KOLIBatchMark* mark);

/// Removes the mark.  Returns 0 when there is none, durably so, or -1.
int PhotoDBMarkRemove(void);

/// The photo database's own memory: a text under a name (no file's).  Get copies it, cut to `size` bytes, and
/// returns 0, 1 when there is none, or -1 when it cannot be read; Set returns 0, or -1.
int PhotoDBSettingGet(const char* name, char* value, int size);
int PhotoDBSettingSet(const char* name, const char* value);

// ---- Photo database --------------------------------------------------------------------------------------

/// Inserts or replaces the row of the record's path and sets its `updated` mark; `mode` is 1 (add) or 5
/// (update).  Over an existing row an empty description keeps the row's, and a title that is only the file
/// name without its extension keeps the row's.  Returns 0, or nonzero on failure.
int PhotoInfoDBSave(const koli::PhotoRecord* record, int mode);

/// Removes the row of `path`.  Returns 0 (also when there was none), or nonzero on failure.
int PhotoInfoDBDelete(const char* path);

/// Removes every photo row at or below the directory `path`.  Returns 0, or nonzero on failure.
int PhotoInfoDBDirDelete(const char* path);

/// Sets the conversion status of the video `path`, and its `updated` mark, if the photo library has a row for
/// it. Returns 0, or nonzero on failure.
int KOLIIndexPhotoUpdateVideoStatus(const char* path);

/// Clears the `updated` mark of every photo row / deletes the photo rows whose mark is still clear.
/// Return 0, or -1 on failure.
int KOLIPhotoInitAllRows(void);
int KOLIPhotoDeleteNoUpdateRows(void);

/// Runs one SQL statement on the photo database.  Returns the number of rows affected, or -1 on failure
/// (logged).
int PhotoDBExec(const char* sql);

// ---- Result sets -----------------------------------------------------------------------------------------

struct KOLIDB;        // a database connection
struct KOLIDBResult;  // the rows of a query, held in memory

/// A result set.  Owned by the caller from PhotoInfoDBOpen or MediaInfoDBOpen until PhotoInfoDBClose.
struct KOLIDBRows {
    KOLIDB* db;            // the connection it came from, for KOLIDBExecute and KOLIDBErrorGet; not owned
    KOLIDBResult* result;  // the rows; owned
    int row;               // the current row, -1 before the first KOLIDBFetchRow
    int row_count;         // number of rows
};

/// Tables of PhotoInfoDBOpen.
enum KOLIPhotoTable {
    KOLI_PHOTO_INFO = 0,
    KOLI_VIDEO_DESC = 1,
    KOLI_VIDEO_COMMENT = 2,
    KOLI_PHOTO_SHARE = 3,
    KOLI_PHOTO_ACCESS_RIGHT = 4
};

/// Selects `columns` ("path", or "*") of a photo-database table.  `where` and `order` are SQL texts as after
/// WHERE and ORDER BY, null for none; `reserved` is 0; `limit` 0 means all rows.  In `where`, LIKE is
/// case-sensitive and a backslash in its pattern escapes the next character; elsewhere a backslash is an
/// ordinary character. Returns a result set (possibly of 0 rows), or null on failure.
KOLIDBRows* PhotoInfoDBOpen(int table, const char* columns, const char* where, int reserved,
                            const char* order, int limit, int offset);

/// The same for the media store's tables (StoreType 0 to 3); `reserved2` is 0.
KOLIDBRows* MediaInfoDBOpen(int type, const char* columns, const char* where, int reserved, const char* order,
                            int limit, int offset, int reserved2);

/// Releases a result set of either database; null is allowed.
void PhotoInfoDBClose(KOLIDBRows* rows);

/// Advances `*row` (start with -1, or pass &rows->row).  Returns 0 while it then names a row, -1 past the
/// last.
int KOLIDBFetchRow(KOLIDBResult* result, int* row);

/// The text of a field; "" for NULL, null for a row or column that is not there.  Booleans read "t" and "f".
/// Valid until the result set is closed.
const char* KOLIDBFetchField(KOLIDBResult* result, int row, const char* column);

/// Runs one SQL statement.  `result`, when not null, is set to null (no rows are returned).  Returns 0, or
/// -1.
int KOLIDBExecute(KOLIDB* db, const char* sql, KOLIDBResult** result);

/// The text of the connection's last error.  Valid until its next use.
const char* KOLIDBErrorGet(KOLIDB* db);

/// Doubles the quotes of `text` for use between single quotes in SQL.  `out_size` of twice the length plus 1
/// always fits.  Returns 0, or -1 when it does not fit (nothing usable in `out`).
int KOLIDBEscapeString(const char* text, char* out, size_t out_size);

/// Puts a backslash before each '\', '%' and '_' so that `text` stands for itself in a LIKE pattern.
/// `out_size` of three times the length plus 1 always fits.  Returns 0, or -1 when it does not fit.
int KOLIDBEscapeBackslash(const char* text, char* out, size_t out_size);

/// A list of paths.  Each node and its `path` come from malloc.
struct PhotoPathList {
    char* path;
    PhotoPathList* next;
};

/// Copies the "path" column of every row of a result set, in row order; null for none, or when memory ran
/// out. The caller frees the list with FreePhotoPathList.
PhotoPathList* PhotoPathDBGet(KOLIDBRows* rows);
void FreePhotoPathList(PhotoPathList* list);

/// Moves every listed photo row from the prefix `old_path` to `new_path`; rows that stand at a new path give
/// way.  A row whose file still stands at its path, or cannot be looked at, stays when its path goes on
/// behind the old one with anything but '/', or when there is a row at its new path: the rename has been done
/// before, unless a later request tells where that file comes from.  Returns 0, or -1 on failure (then
/// nothing is changed).
int KOLIUpdatePhotoPath(const PhotoPathList* list, const char* new_path, const char* old_path);

}  // extern "C"
