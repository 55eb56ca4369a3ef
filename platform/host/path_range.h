// A path and everything below it, as a condition that costs what it finds.
#pragma once

#include <string>
#include <string_view>

#include "platform/host/sql/sql.h"

namespace koli::host {

/// The condition: the path itself, or a key between "path/" and "path0" ('0' follows '/').  These are two
/// key ranges of a table that is clustered by path.
inline constexpr const char kPathRange[] = "path = ?1 OR (path >= ?2 AND path < ?3)";

/// `path` without the slashes at its end; "" for the root.
std::string_view WithoutTrailingSlashes(std::string_view path);

/// What is below `folder` stands between these two keys.
std::string FirstKeyBelow(std::string_view folder);
std::string KeyBehind(std::string_view folder);

/// Fills the condition's parameters 1 to 3.
SqlStatement& FillPathRange(SqlStatement& statement, std::string_view path);

}  // namespace koli::host
