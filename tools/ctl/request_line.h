// Lines of the indexing queue, as daemon/queue_line.h describes them, and what they cannot carry.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/paths.h"

namespace koli::ctl {

inline constexpr size_t kRequestLineMax = paths::kQueueLineSize - 1;  // bytes, newline included

/// `path` made absolute from `folder`, without ".", "..", double slashes and slashes at its end.  Links are
/// not looked at.  "" stays "".
std::string AbsolutePath(std::string_view path, std::string_view folder);

/// An absolute path below one of the share links ("/var/services/music/...") as the path on its volume, which
/// is how the daemon stores it; any other path as it is.
std::string VolumePath(const std::string& path);

/// Where the share links lead: the one of that name, or all three.  Links that lead nowhere are left out.
std::vector<std::string> ShareFolders(const std::string& library);

/// Whether `path` is `folder`, or lies below it: both absolute.
bool IsAtOrBelow(std::string_view path, std::string_view folder);

/// Both in turn, from the working directory.  "" when that cannot be told.
std::string DaemonPath(std::string_view path);

/// Why a request cannot carry the path; null when it can.
const char* PathRefusal(std::string_view path);

/// "CODE:ARGUMENT\n".  The argument is a word or a path that PathRefusal accepts.
std::string RequestLine(char code, std::string_view argument);

/// Why a rename cannot carry the two paths; null when it can.
const char* RenameRefusal(std::string_view new_path, std::string_view old_path);

/// "N:NEW:OLD\n".
std::string RenameLine(std::string_view new_path, std::string_view old_path);

}  // namespace koli::ctl
