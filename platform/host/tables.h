// The tables of both databases, whichever engine holds them.
//
// - Empty text is '', an unknown number 0, never NULL.
// - Text is valid UTF-8; path, name, folder and sharename hold the file system's bytes, compared byte by
// byte.
// - What lies below one folder is found at a cost that follows what is found: path is the primary key, or has
//   an index.
// - Boolean columns read 't' or 'f', whatever form of a truth value was written.
// - `problem` tells which files could not be parsed or read, and why: one row per path, `kind` a set of
//   KOLIProblem; see problems.h.
// - `setting` of the photo database is the daemon's own memory: 'batch_mark', how far a batch has come, and
//   'photo_device', the device of the photo share's top when it was swept last, 'copied_from' while a copy
//   of a library is not whole (database_copy.h).
// - The access rights of an album go with it, whichever program deletes it.
#pragma once

#include "platform/host/sql/save_form.h"

namespace koli::host {

/// Tables of the media store by StoreType, and behind them the one for folders.
inline constexpr const char* kMediaTables[] = {"music", "video", "photo", "playlist", "directory"};
inline constexpr int kMediaStoreTables = 4;  // those that hold a MediaInfo
inline constexpr const char kDirectoryTable[] = "directory";
inline constexpr const char kProblemTable[] = "problem";
inline constexpr const char kSettingTable[] = "setting";

/// Tables of the photo database by KOLIPhotoTable.
inline constexpr const char* kPhotoTables[] = {"photo_info", "video_desc", "video_comment", "photo_share",
                                               "photo_access_right"};

/// How a value of `setting` is saved.
inline const SaveForm& SettingForm() {
    static const auto* const form = new SaveForm{kSettingTable, {"name", "value"}};
    return *form;
}

}  // namespace koli::host
