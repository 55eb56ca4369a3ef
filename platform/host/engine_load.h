// Engines that are modules of their own.
#pragma once

#include <memory>
#include <string>

#include "platform/host/sql/engine_module.h"

namespace koli::host {

/// The engine on a PostgreSQL server: the conninfo as libpq has it, the library the name of a schema.  Its
/// module is loaded on first use and stays; without it the failure says which package is missing, and passes.
std::unique_ptr<DatabaseEngine> ServerEngine(const ServerPlace& place, SqlFailure* failure);

/// What that place lacks, for an administrator's conninfo; made if `is_to_make`.
ServerPlan ServerSetUp(const ServerPlace& place, bool is_to_make);

}  // namespace koli::host
