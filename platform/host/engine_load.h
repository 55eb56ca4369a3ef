// Engines that are modules of their own.
#pragma once

#include <memory>
#include <string>

#include "platform/host/sql/database_engine.h"

namespace koli::host {

/// The engine on a PostgreSQL server: `place` as libpq has it, `library` the name of a schema.  Its module is
/// loaded on first use and stays; without it the failure says which package is missing, and passes.
std::unique_ptr<DatabaseEngine> ServerEngine(const std::string& place, const std::string& library,
                                             SqlFailure* failure);

}  // namespace koli::host
