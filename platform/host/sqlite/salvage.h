// Saves what can be read from a damaged database file into a new one.
#pragma once

#include <string>

#include "platform/host/sql/database_engine.h"
#include "platform/host/sqlite/schema.h"

namespace koli::host {

/// Makes the database `made` (which gives way when there is one) with the tables of `schema` and the rows of
/// `damaged`, which is only read: first those of its tables, then those on pages that belong to none and
/// whose form tells what they are.  A row that another one with the same key precedes is left out.  When
/// something is lost, each of `albums` (null = none) that was not saved is added as a private one.  The new
/// database is one file, on the disk, with the owner and the rights of the damaged one.
Salvage DatabaseSalvage(const std::string& damaged, const std::string& made, const Schema& schema,
                        const AlbumNames& albums = nullptr);

}  // namespace koli::host
