// libkoliindex: helpers of the appliance's indexers.  Nothing here throws.
#pragma once

#include <stddef.h>
#include <stdint.h>

extern "C" {

/// The file's extension: a pointer into `path` behind the last '.' of its last component; null when there is
/// none.
const char* KOLIIndexExtGet(const char* path);

/// Writes the file's status-change and modification times as local time, "%Y-%m-%d %H:%M:%S".  A file that
/// cannot be looked at gives two empty texts.  Its result means nothing.
int KOLIIndexCTimeMTimeGet(const char* path, char* ctime, int ctime_size, char* mtime, int mtime_size);

/// Writes one time in that form.
void KOLIIndexTimeText(int64_t when, char* text, int size);

/// Reads a picture's size in pixels from its header (JPEG, PNG, GIF, BMP, TIFF, PSD, ICO, told by content).
/// Returns 0 with both filled, or -1 with neither touched: errno is then 0 when the picture does not tell,
/// else it tells why it could not be read.
int KOLIIndexImgResGet(const char* path, int* width, int* height);

/// The same of an open file, which stays the caller's.
int KOLIIndexImgResRead(int file, int* width, int* height);

/// Table-changed marks of the media store: clear or set one, and ask whether rows were inserted, changed or
/// removed.
void KOLIIndexMusicTableDirtySet(int dirty);
void KOLIIndexVideoTableDirtySet(int dirty);
int BlKOLIIndexIsMusicTableDirty(void);
int BlKOLIIndexIsVideoTableDirty(void);

/// Classify an extension (without its dot), or with ...File a path by its extension, ignoring case: nonzero
/// for JPEG, for pictures and videos that a browser can show, for any video that is probed.  Null is none of
/// them.
int BlKOLIIndexIsJpeg(const char* extension);
int BlKOLIIndexIsPhotoOnWeb(const char* extension);
int BlKOLIIndexIsVideoOnWeb(const char* extension);
int BlKOLIIndexIsVideo(const char* extension);
int BlKOLIIndexIsPhotoOnWebFile(const char* path);
int BlKOLIIndexIsVideoOnWebFile(const char* path);

/// Empties one table of either database; a name that is none of theirs is refused with a log line.
/// Returns 0, or -1.
int KOLITruncateTable(const char* table);

/// The database that has the table (KOLIDatabase of kolidb.h); 0 for a name that is none of theirs, and for
/// null.
int KOLITableDatabase(const char* table);

/// Writes the path of the extended-attribute file that holds `stream` for `path`.  Returns 0, or -1 when it
/// does not fit into `size` bytes.
int KOLIEAPath(const char* path, const char* stream, char* buffer, int size);

/// Names the charset, as iconv knows it, of the texts of files that are neither UTF-8 nor marked as UTF-16,
/// for both databases; what it does not have is read as windows-1252.  Null or "": windows-1252.  Returns 0,
/// or -1 when it is not known or cannot be used (logged): windows-1252 then.
int KOLITagCharsetSet(const char* name);

/// Nonzero when such a charset is in force.
int BlKOLITagCharsetIsSet(void);

// ---- Cover store -----------------------------------------------------------------------------------------

/// Writes the path of the audio file's cover folder.  Nonzero when the folder exists.
int GetCoverFolder(const char* audio_path, char* folder, int size);

/// Removes the covers that were stored in a cover folder, and nothing else.  errno is then 0, or tells why
/// one may be left.
void CleanOldCover(const char* folder);

/// Image types of GetCoverPath.
enum KOLICoverImage { KOLI_COVER_JPEG = 1, KOLI_COVER_PNG = 2 };

/// Writes the path of a cover file and makes the folders it needs.  `picture_type` is ID3's, 0 to 20; `index`
/// counts the pictures of one file from 1.  Nonzero on success, 0 on failure.
int GetCoverPath(const char* audio_path, char* cover_path, int size, int picture_type, int index,
                 int image_type);

}  // extern "C"
