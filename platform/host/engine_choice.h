// Which engine keeps the databases, and where.
#pragma once

#include <memory>
#include <string>

#include "platform/host/sql/database_engine.h"
#include "platform/host/sql/server_setup.h"

namespace koli::host {

/// The engine in `directory`, which may be a postgresql:CONNINFO; "" stands for what DatabaseDirectoryChoose
/// said, or else for the key "database" of the machine's settings: sqlite:DIRECTORY ("/var/lib/koli" without
/// that key), or postgresql:CONNINFO with the library of the key "library" (the host's name without it).
/// Null with the reason when the settings name an engine that there is not (logged), or cannot be read now,
/// which passes.
/// `library` is asked for instead of the one of the settings, "*" for all together; '' = none.
std::unique_ptr<DatabaseEngine> EngineIn(const std::string& directory, SqlFailure* failure,
                                         const std::string& library = "");

/// The engine of a place in the settings' words, sqlite:DIRECTORY or postgresql:CONNINFO, with the same
/// results.
std::unique_ptr<DatabaseEngine> EngineAt(const std::string& place, const std::string& library,
                                         SqlFailure* failure);

/// What this machine's library is called on a server; '' with the reason when the settings cannot be read.
std::string LibraryOfMachine(SqlFailure* failure);

/// What a server lacks for a library (server_setup.h), made if `is_to_make`.  `place` is an administrator's
/// conninfo, with "postgresql:" in front or without.
ServerPlan ServerSetUpAt(const std::string& place, const std::string& library, bool is_to_make);

/// Chooses the directory instead of the settings; null goes back to them.  DatabaseDirectorySet
/// (database_groups.h) is what closes the databases too.
void DatabaseDirectoryChoose(const char* directory);

}  // namespace koli::host
