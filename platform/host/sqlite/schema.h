// What makes the tables of tables.h.
//
// - A table that is keyed by path is clustered by it (WITHOUT ROWID): what lies below one folder stands in
//   one place.  Bytes are stored as TEXT.
// - Boolean columns hold 't' or 'f'.  The triggers of photo_share turn every other form of a truth value into
//   these and refuse what is none, whichever program writes; a comparison in a caller's text is translated
//   (dialect.h).
// - The access rights of an album go with it by a trigger.
#pragma once

#include <string>
#include <vector>

#include "platform/host/sqlite/connection.h"

namespace koli::host {

/// The statements that make the tables of a database: the one at [n] takes it from version n (its
/// user_version; 0 is an empty file) to n + 1.  Steps are only ever added.
using Schema = std::vector<std::string>;

/// Those of KOLI_MEDIA_DB or KOLI_PHOTO_DB.
const Schema& SchemaOf(int database);

/// Runs the steps from `version` on.
bool SchemaRun(Sqlite& sql, const Schema& schema, size_t version);

/// Gives an empty database its tables, and an older one those that it lacks; whoever comes second finds them
/// there.  One that a later program has made is not touched.
bool SchemaUpgrade(Sqlite& sql, const Schema& schema);

}  // namespace koli::host
