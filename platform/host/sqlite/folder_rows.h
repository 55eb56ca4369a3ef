// The query behind Sql::PathsInside.
#pragma once

#include <string>

namespace koli::host {

/// Its text, made once for each table, with the parameters "FOLDER/", "FOLDER0" and the place, from 1, of
/// what follows "FOLDER/".  It goes from one sub-folder to the next.
const std::string& FolderRowsSql(const char* table);

}  // namespace koli::host
