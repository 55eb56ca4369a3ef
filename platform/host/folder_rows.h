// The rows directly inside one folder, found without reading those below its sub-folders.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/host/sql.h"

namespace koli::host {

/// The folder of a caller's condition that is exactly
///     path like 'FOLDER/%' and path not like 'FOLDER/%/%'
/// (FOLDER escaped for both); none for every other condition.
std::optional<std::string> FolderOfCondition(std::string_view where);

/// The query of the paths of these rows in their order.  It goes from one sub-folder to the next and reads
/// nothing of what lies below them, so that a tree costs what it holds, however deep it is.  The text lives
/// as long as the program.
const char* FolderRowsSql(const char* table);

/// Fills its parameters.
void BindFolderRows(SqlStatement& statement, const std::string& folder);

}  // namespace koli::host
