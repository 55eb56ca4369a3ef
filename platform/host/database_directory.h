// Where the databases lie.
#pragma once

#include <string>

namespace koli::host {

/// The directory that was chosen, or else the one that the key "database" of the machine's settings names as
/// sqlite:DIRECTORY; "/var/lib/koli" without such a key.  Empty with errno EINVAL for an engine that there is
/// not (logged), with another one when the settings cannot be read now.
std::string DatabaseDirectory();

/// Chooses the directory instead of the settings; null goes back to them.  DatabaseDirectorySet
/// (database_groups.h) is what closes the databases too.
void DatabaseDirectoryChoose(const char* directory);

/// Creates the databases' directory, 0750, and those above it, 0755, each made durable.  True when it is
/// there.
bool MakeDirectories(const std::string& directory);

}  // namespace koli::host
