// What a server orders texts by.
#pragma once

#include <string>

#include "platform/host/sql/sql.h"

namespace koli::host {

/// A term whose bytes compare as the keys do that `key` makes of the texts of `column`: folded, without marks
/// and then with them.
std::string SortTermOf(const std::string& column, Sql::TextKey key);

}  // namespace koli::host
