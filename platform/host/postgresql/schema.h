// What makes the tables of tables.h in the schema of a library.
//
// - Both databases' tables stand in one schema; `koli_schema` holds the version of each, and when
//   a batch has changed it last.
// - Key columns compare byte by byte, so that what lies below one folder stands in one place of its index,
//   whatever the database's collation is.
// - Paths that are no UTF-8 have an index of their own, mostly empty, and koli_bytes gives the bytes that a
// path
//   stands for: only these sort otherwise than what is kept of them.
// - Boolean columns are real ones.
// - The access rights of an album go with it by a trigger, and the number of a new row is one more than the
//   highest, by a function: whoever hands numbers over does not disturb it.
#pragma once

#include <string>

#include "platform/host/postgresql/connection.h"

namespace koli::host {

/// Makes the tables of KOLI_MEDIA_DB or KOLI_PHOTO_DB that the connection's schema lacks, in one transaction;
/// only for whoever holds the fence.  Tables that a later program has made are not touched.
bool ServerSchemaUpgrade(Postgresql& sql, int database);

/// The version that the schema has, -1 when it has none and on failure; and that which this program knows.
int ServerSchemaVersion(Postgresql& sql, int database);
int ServerSchemaKnown(int database);

}  // namespace koli::host
