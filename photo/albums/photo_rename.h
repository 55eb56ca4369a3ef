// The photo library's rows follow files and folders that are renamed.
#pragma once

namespace koli {

/// Moves the photo rows of a renamed file, or with `is_directory` of everything below a renamed folder, to
/// the new path.  A file's name stands for every path that begins with it, but for those of neighbours whose
/// files are still there.  Without rows, a picture is added and a folder is walked, photo library only.  A
/// file that is no picture gives up its rows.  A folder may have moved on from its new path already.  Returns
/// 0, or -1 for bad arguments and failures (logged) and for a file that is no picture.
int PhotoPathRename(const char* new_path, const char* old_path, int is_directory);

/// Moves what people have written about videos, in table 1 (KOLI_VIDEO_DESC) or 2 (KOLI_VIDEO_COMMENT), from
/// every path that begins with the old one to the new one, neighbours' as above excepted.  A row whose new
/// path would not fit into 4095 bytes keeps its own.  A description at the new path gives way, unless the old
/// file is there again.  Stops at the first row that the database refuses; earlier ones stay moved.  Returns
/// 0, or -1 for bad arguments and failures (logged) and when there are no rows.
int VideoDescPathRename(int table, const char* new_path, const char* old_path);

}  // namespace koli
