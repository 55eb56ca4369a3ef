// Which engine keeps the databases, and where.
#pragma once

#include <memory>
#include <string>

#include "platform/host/sql/database_engine.h"

namespace koli::host {

/// The engine in `directory`, which may be a postgresql:CONNINFO; "" stands for what DatabaseDirectoryChoose
/// said, or else for the key "database" of the machine's settings: sqlite:DIRECTORY ("/var/lib/koli" without
/// that key), or postgresql:CONNINFO with the library of the key "library" (the host's name without it).
/// Null with the reason when the settings name an engine that there is not (logged), or cannot be read now,
/// which passes.
std::unique_ptr<DatabaseEngine> EngineIn(const std::string& directory, SqlFailure* failure);

/// Chooses the directory instead of the settings; null goes back to them.  DatabaseDirectorySet
/// (database_groups.h) is what closes the databases too.
void DatabaseDirectoryChoose(const char* directory);

}  // namespace koli::host
