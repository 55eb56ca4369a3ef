// The repair of one database.
#pragma once

#include <string>

#include "platform/host/database_look.h"
#include "platform/host/database_salvage.h"
#include "tools/ctl/context.h"

namespace koli::ctl {

struct RepairResult {
    std::string name;  // of the database's file
    host::DatabaseFault fault = {};
    bool is_mended = false;
    std::string set_aside = {};  // where the damaged database is kept
    host::Salvage salvage = {};  // not known of a repair that an earlier one has begun
    int64_t private_albums = 0;  // made for folders whose album was lost
    int exit_code = kExitDone;   // a failure, which has been told
};

/// Mends the damaged database `kind` in `directory`, under its lock, or carries out what a killed repair has
/// left.
RepairResult RepairDatabase(const std::string& directory, const host::DatabaseKind& kind,
                            const host::DatabaseFault& fault);

}  // namespace koli::ctl
