// A condition that callers use for what lies directly inside one folder.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace koli::host {

/// The folder of a caller's condition that is exactly
///     path like 'FOLDER/%' and path not like 'FOLDER/%/%'
/// (FOLDER escaped for both); none for every other condition.
std::optional<std::string> FolderOfCondition(std::string_view where);

}  // namespace koli::host
