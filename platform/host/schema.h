// The tables of both databases.
//
// - Empty text is '', an unknown number 0, never NULL.
// - Text is valid UTF-8; path, name, folder and sharename hold the file system's bytes.  They are stored as
//   TEXT and compared byte by byte.
// - A table that is keyed by path is clustered by it (WITHOUT ROWID): what lies below one folder stands in
//   one place.
// - Boolean columns hold 't' or 'f'.  The triggers of photo_share turn every other form of a truth value into
//   these and refuse what is none, whichever program writes; a comparison in a caller's text is translated
//   (sql_dialect.h).
// - `problem` tells which files could not be parsed or read, and why: one row per path, `kind` a set of
//   KOLIProblem; see problems.h.
// - `setting` of the photo database is the daemon's own memory: 'batch_mark', how far a batch has come, and
//   'photo_device', the device of the photo share's top when it was swept last.
// - The access rights of an album go with it, by a trigger, whichever program deletes it.
#pragma once

#include <string>
#include <vector>

namespace koli::host {

/// Tables of the media store by StoreType, and behind them the one for folders.
inline constexpr const char* kMediaTables[] = {"music", "video", "photo", "playlist", "directory"};
inline constexpr int kMediaStoreTables = 4;  // those that hold a MediaInfo

/// Tables of the photo database by KOLIPhotoTable.
inline constexpr const char* kPhotoTables[] = {"photo_info", "video_desc", "video_comment", "photo_share",
                                               "photo_access_right"};

/// The statements that make the tables of each: the one at [n] takes a database from version n (its
/// user_version; 0 is an empty file) to n + 1.  Steps are only ever added.
std::vector<std::string> MediaSchemaSteps();
std::vector<std::string> PhotoSchemaSteps();

/// The statement that saves a MediaInfo: parameters in the order of the columns; a row that would stay as it
/// is counts as not affected.
std::string MediaSaveSql(const char* table);

}  // namespace koli::host
