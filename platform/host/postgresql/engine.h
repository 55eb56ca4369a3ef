// Both databases of a library in one schema on a server, or to be read those of all libraries there.
#pragma once

#include <string>

#include "platform/host/postgresql/connection.h"
#include "platform/host/postgresql/conninfo.h"
#include "platform/host/postgresql/libraries.h"
#include "platform/host/sql/database_engine.h"

namespace koli::host {

class PostgresqlEngine final : public DatabaseEngine {
  public:
    /// `library` is the schema's name, or kEveryLibrary; `reader` the role for whoever only looks, '' = the
    /// same as the writer's.
    PostgresqlEngine(Conninfo conninfo, std::string library, std::string reader);

    const std::string& place() const override { return place_; }
    std::string PlaceOf(int database) const override;
    bool IsInFiles() const override { return false; }
    bool IsFree(int, std::string*) const override { return true; }
    /// Makes the schema where this user may.
    std::unique_ptr<Sql> Open(int database, Sql::ChangeListener changed, SqlFailure* failure) const override;
    std::unique_ptr<Sql> OpenToRead(int database, SqlFailure* failure) const override;
    DatabaseView Look(int database, DatabaseCheck check) const override;
    bool HasEveryLibrary() const override { return library_ == kEveryLibrary; }
    bool HoldsPassword() const override { return conninfo_.HasPassword(); }
    std::vector<std::string> Libraries(SqlFailure* failure) const override;
    bool IsWritten(int database, SqlFailure* failure) const override;
    /// Refuses: a server is mended with its own tools.
    Repair Mend(int database, const AlbumNames& albums) const override;

  private:
    std::unique_ptr<Postgresql> Connect(int database, Sql::ChangeListener changed, bool is_reader,
                                        SqlFailure* failure) const;
    bool Enter(Postgresql& sql, const std::string& library, bool may_make) const;
    bool EnterAll(Postgresql& sql) const;

    const Conninfo conninfo_;
    const std::string library_;
    const std::string reader_;
    const std::string place_;
};

}  // namespace koli::host
