// Makes what a server needs for a library: roles, database, rights, the library's schema, the views.
//
// Two roles for all libraries of a database: koli_writer, which owns them, for the daemons, and koli_reader
// for whoever only looks.  They get no password here: that is for the administrator, or for the server's own
// ways to know who calls.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/host/postgresql/connection.h"
#include "platform/host/postgresql/conninfo.h"
#include "platform/host/sql/server_setup.h"

namespace koli::host {

class ServerSetup {
  public:
    /// `conninfo` is the administrator's, who may make roles and databases.
    ServerSetup(const Conninfo& conninfo, std::string library)
        : conninfo_(conninfo), library_(std::move(library)) {}

    /// Looks what there is, and with `is_to_make` makes what is missing.
    ServerPlan Run(bool is_to_make);

  private:
    /// What stands in the database itself; `ask` gives 't' when it is there.
    struct Part {
        const char* kind;
        std::string name;
        std::string ask;
        std::vector<std::string> make;
    };
    bool Refuse(const std::string& reason);
    bool RefuseWords();
    bool Connect();
    bool LookAtServer();
    bool LookAtSchema();
    bool AreViewsDue();
    std::vector<Part> Parts() const;
    bool Look();
    bool MakeOutside();
    bool MakeInside();
    bool Execute(const std::string& statement);
    bool HasRole(const char* role) const;
    void Add(const char* kind, const std::string& name, bool is_missing);

    const Conninfo conninfo_;
    const std::string library_;
    std::unique_ptr<Postgresql> sql_;
    bool has_database_ = false;
    bool is_superuser_ = false;
    std::string user_;
    ServerPlan plan_;
};

}  // namespace koli::host
