// A statement of a connection to a server.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/host/postgresql/dialect.h"
#include "platform/host/postgresql/link.h"

namespace koli::host {

class Postgresql;

/// Its rows come in answers: all of them in one, or some at a time from a cursor (Postgresql::Fetch).
class PostgresqlStatement final : public SqlStatement {
  public:
    /// `name` is the server's for a kept one, '' = none.
    PostgresqlStatement(Postgresql& owner, ServerStatement server, std::string name);
    ~PostgresqlStatement() override;

    void Text(int index, std::string_view value) override;
    void Integer(int index, int64_t value) override;
    void Real(int index, double value) override;
    bool Next() override;
    int columns() const override { return PQnfields(answer_.get()); }
    const char* Name(int column) const override;
    std::string_view Field(int column) const override;
    int64_t Number(int column) const override;
    double RealNumber(int column) const override;
    Kind KindOf(int column) const override;
    void Reset() override;

    const ServerStatement& server() const { return server_; }
    const std::string& name() const { return name_; }
    std::vector<Parameter> TakeParameters();

    bool is_prepared = false;  // under its name; the connection's to say
    std::string cursor = {};   // of its rows, '' = none is open

  private:
    void Set(int index, std::string text);
    bool HasField(int column) const;

    Postgresql& owner_;
    const ServerStatement server_;
    const std::string name_;
    std::vector<Parameter> parameters_;
    Result answer_{nullptr, &PQclear};
    int row_ = -1;
    bool is_at_end_ = false;                    // the answer holds the last rows
    mutable std::vector<std::string> scratch_;  // of the fields whose bytes are not the server's
};

}  // namespace koli::host
