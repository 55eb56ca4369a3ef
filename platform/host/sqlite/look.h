// Whether a database file is sound, without changing anything: what `status` says and `repair` mends.
#pragma once

#include <string>

#include "platform/host/sql/database_engine.h"
#include "platform/host/sqlite/schema.h"

namespace koli::host {

/// Whether this user may not read the database `file`, or one of those beside it, which the engine needs,
/// too, and of which it only says that it cannot open the database.
bool DatabaseIsDenied(const std::string& file);

/// Looks at the database `file`; what lies beside the file is left out of the view.  A table whose rows
/// cannot be counted is damage.
DatabaseView DatabaseLook(const std::string& file, const Schema& schema, DatabaseCheck check);

}  // namespace koli::host
