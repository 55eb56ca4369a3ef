// Both databases as SQLite files in one directory.
#pragma once

#include <string>

#include "platform/host/sql/database_engine.h"

namespace koli::host {

class SqliteEngine final : public DatabaseEngine {
  public:
    explicit SqliteEngine(std::string directory) : directory_(std::move(directory)) {}

    const std::string& place() const override { return directory_; }
    std::string PlaceOf(int database) const override { return directory_ + "/" + DatabaseName(database); }
    bool IsInFiles() const override { return true; }
    bool IsFree(int database, std::string* reason) const override;
    /// Creates the directory, 0750, and those above it, 0755, each made durable.
    std::unique_ptr<Sql> Open(int database, Sql::ChangeListener changed, SqlFailure* failure) const override;
    std::unique_ptr<Sql> OpenToRead(int database, SqlFailure* failure) const override;
    DatabaseView Look(int database, DatabaseCheck check) const override;
    Repair Mend(int database, const AlbumNames& albums) const override;

  private:
    std::string directory_;
};

}  // namespace koli::host
