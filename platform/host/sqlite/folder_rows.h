// The query behind Sql::PathsInside.
#pragma once

#include <string>

namespace koli::host {

/// Its text, with the parameters "FOLDER/", "FOLDER0" and the place, from 1, of
/// what follows "FOLDER/".  It goes from one sub-folder to the next.
std::string FolderRowsText(const char* table);

}  // namespace koli::host
