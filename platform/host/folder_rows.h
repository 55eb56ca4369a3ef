// The rows directly inside one folder, found without reading those below its sub-folders.
#pragma once

#include <string>
#include <string_view>

namespace koli::host {

/// `where` is a caller's condition.  When it is exactly
///     path like 'FOLDER/%' and path not like 'FOLDER/%/%'
/// (FOLDER escaped for both), returns the query of these rows' paths in their order, as SQLite wants it: it
/// goes from one sub-folder to the next and reads nothing of what lies below them, so that a tree costs what
/// it holds, however deep it is.  "" for every other condition.
std::string FolderRowsSql(const char* table, std::string_view where);

}  // namespace koli::host
