// The repair of one database file.
#pragma once

#include <string>

#include "platform/host/database_engine.h"

namespace koli::host {

/// DatabaseEngine::Mend for the database in `file`, under the folder's lock.
Repair RepairDatabase(const std::string& file, int database, const AlbumNames& albums);

}  // namespace koli::host
