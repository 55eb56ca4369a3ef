// A connection to the schema of a library on a server.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/postgresql/exchange.h"
#include "platform/host/postgresql/libraries.h"
#include "platform/host/postgresql/link.h"
#include "platform/host/postgresql/sort_term.h"

namespace koli::host {

/// Writes that were put off are sent while the caller goes on, and answered together; a savepoint stands
/// before them, and before each other statement of a transaction: what fails takes nothing else with it.
class Postgresql final : public Sql {
  public:
    /// `is_reader`: rows come some at a time, from cursors, so that a large table needs no memory.
    Postgresql(std::unique_ptr<Link> link, int database, ChangeListener changed, bool is_reader);
    ~Postgresql() override;

    SqlStatement* PathsInside(const char* table, const std::string& folder) override;
    const char* PathOrder(const char* table) override;
    std::string SortTerm(const std::string& column, TextKey key) override { return SortTermOf(column, key); }
    int Run(SqlStatement& statement) override;
    int RunLater(SqlStatement& statement) override;
    bool Settle() override;
    bool Begin() override;
    bool InTransaction() const override { return in_transaction_; }
    int64_t TotalChanges() const override { return changes_; }
    void WaitForLocks(int) override {}  // rows only are locked, and the server waits for these
    bool HasCompany() const override { return false; }
    bool IsTakenAway() const override { return false; }
    Comparison PathComparison() const override;
    std::string ChangeMark() override;
    void SaveMemory() override { fetched_ = kFetchedFew; }
    bool Harden() override;
    int Vacuum() override { return 0; }  // the server does it

    /// For the statement's Next: its next rows, null on failure; `*is_last` when there are no more behind
    /// them.
    Result Fetch(PostgresqlStatement& statement, bool* is_last);
    void EndFetch(PostgresqlStatement& statement);

    /// The first field of the first row; '' when there is none, and on failure.
    std::string Answer(std::string_view text, std::initializer_list<std::string_view> values = {});
    /// From now on texts that name these tables are about the rows of all libraries.
    void ReadUnions(std::vector<LibraryUnion> unions) { unions_ = std::move(unions); }
    /// Makes it the last failure; false.
    bool FailAs(SqlFailure failure);

  private:
    struct PutOff {
        PostgresqlStatement* statement;
        std::vector<Parameter> parameters;
    };
    std::unique_ptr<SqlStatement> Make(std::string_view text, bool is_kept) override;
    const char* ColumnsText() const override;
    std::string SaveText(const SaveForm& form) const override { return SaveTextOf(form); }
    bool IsUsable();
    bool IsLibraryGone(const SqlFailure& failure, const char* back);
    void Open(Exchange& exchange);
    Result Ask(PostgresqlStatement& statement);
    Result FetchSome(PostgresqlStatement& statement, bool* is_last);
    int Control(const ServerStatement& server);
    bool SettleWith(const std::string& end, Result* answer);
    int CommitPutOff(const std::string& commit);
    bool IsCommitted(const Result& answer);
    void CountChange(const ServerStatement& server, int changed);
    void SendPutOff(PutOff& put_off);
    void DropPutOff(size_t place);
    void Discard();

    std::string WithUnions(std::string_view text) const;

    std::unique_ptr<Link> link_;
    const int database_;
    ChangeListener changed_;
    const bool is_reader_;
    static constexpr int kFetched = 1000, kFetchedFew = 100;
    int fetched_ = kFetched;  // rows of a cursor at once
    bool in_transaction_ = false;
    bool is_begin_due_ = false;  // BEGIN goes with the first statement behind it
    int64_t changes_ = 0;
    std::vector<LibraryUnion> unions_;
    int64_t hardened_ = 0;  // changes_ at the last Harden
    int last_name_ = 0;     // of statements and cursors
    int cursors_ = 0;       // that are open
    std::vector<PutOff> put_off_;
    size_t first_put_off_ = 0;  // its place in going_
    std::optional<Exchange> going_;
};

}  // namespace koli::host
