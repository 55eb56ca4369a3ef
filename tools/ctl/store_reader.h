// Read-only access to the daemon's two databases.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>

#include "platform/host/sql_reader.h"
#include "tools/ctl/context.h"

namespace koli::ctl {

/// A path below `folder` is between these two keys: '0' follows '/'.
std::string FirstKeyBelow(std::string_view folder);
std::string KeyBehind(std::string_view folder);

/// The folder of the databases; "" with the reason in `*error`.
std::string DatabasesFolder(const Places& places, std::string* error);

/// Both databases.  One that the daemon has not created yet counts as empty: its reader is null.
class StoreReader {
  public:
    /// False when there is a database that cannot be read, or no telling where the databases are; error()
    /// tells why.
    bool Open(const Places& places);

    host::SqlReader* media() const { return media_.get(); }
    host::SqlReader* photo() const { return photo_.get(); }
    const std::string& directory() const { return directory_; }

    /// The reader of the database that has `table`; null when there is no such table (yet).
    host::SqlReader* ReaderOf(const char* table) const;

    /// Whether the problems tell those that pass from others: a daemon of an earlier version has not told.
    bool KnowsProblemKinds() const;

    /// Rows of a table at and below `path`, "" = all; 0 without that table.
    int64_t CountBelow(const char* table, const std::string& path) const;

    /// Files (not folders) in the media store at and below `path`.
    int64_t FilesBelow(const std::string& path) const;

    /// True when a table of files or folders has a row below `path`.
    bool HasRowsBelow(const std::string& path) const;

    /// True when `path` is recorded as a folder.
    bool IsRecordedFolder(const std::string& path) const;

    /// The names of all albums; none without the photo library's tables.
    std::unordered_set<std::string> AlbumNames() const;

    /// What has failed so far; "" = nothing.
    std::string error() const;

  private:
    /// Null for a file that is missing or does not have its tables yet.
    std::unique_ptr<host::SqlReader> OpenOne(const char* name, const char* table);

    std::string directory_;
    std::string error_;
    std::unique_ptr<host::SqlReader> media_, photo_;
};

/// Opens, and complains in one line when that fails.
bool OpenStore(const Context& context, StoreReader* store);

/// Complains about a database that failed while it was read.  Returns kExitDatabase, or `code` when nothing
/// has failed.
int StoreResult(const StoreReader& store, int code);

}  // namespace koli::ctl
