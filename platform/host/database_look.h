// Whether a database is sound, without changing anything: what `status` says and `repair` mends.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace koli::host {

enum class DatabaseState {
    kSound,
    kMissing,  // not created yet
    kDamaged,  // no database, cut, overwritten, a table or an index of its schema missing: repair mends it
    kNotPermitted,   // this user may not read it
    kUnknownSchema,  // made by a newer version, or another program's
    kLocked,         // by another program
    kUnreadable      // anything else: the disk, no memory
};

/// One word, or some, for people and programs: "sound", "damaged", "not permitted" ...
const char* DatabaseStateName(DatabaseState state);

struct DatabaseFault {
    DatabaseState state = DatabaseState::kSound;
    std::string reason = {};  // '' for kSound and kMissing
};

enum class DatabaseCheck {
    kQuick,    // header, schema, the first row of every table: cheap
    kThorough  // every page and every index, too: reads the whole file
};

/// One of the two databases: its file's name and the steps of its schema (schema.h).
struct DatabaseKind {
    const char* file_name;
    std::vector<std::string> schema;
};
std::vector<DatabaseKind> DatabaseKinds();

/// Looks at the database `file`.  With `counts`, adds each table that can be read and its number of rows; a
/// table whose rows cannot be counted is damage.  Not for a process that has the database open: it would lose
/// its locks.
DatabaseFault DatabaseLook(const std::string& file, const std::vector<std::string>& schema,
                           DatabaseCheck check,
                           std::vector<std::pair<std::string, int64_t>>* counts = nullptr);

}  // namespace koli::host
