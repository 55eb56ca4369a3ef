#include "platform/host/postgresql/connection.h"

#include <cstring>
#include <utility>

#include "platform/host/postgresql/bytes.h"
#include "platform/host/postgresql/failure.h"
#include "platform/host/sql/database_engine.h"

namespace koli::host {
namespace {

constexpr size_t kPutOffMax = 512;  // more than a group: its COMMIT takes them along
constexpr size_t kPushEvery = 16;

// The ends of the daemon's batches, and what the server has counted, which comes later and tells of others.
constexpr const char kChangeMark[] =
    "SELECT concat((SELECT string_agg(changed::text, ' ' ORDER BY name) FROM koli_schema), ' ',"
    " sum(n_tup_ins), ' ', sum(n_tup_upd), ' ', sum(n_tup_del), ' ', max(relid::bigint))"
    " FROM pg_stat_user_tables WHERE schemaname = current_schema()";

constexpr const char kNoteChange[] = "UPDATE koli_schema SET changed = now() WHERE name = $1";

}  // namespace

Postgresql::Postgresql(std::unique_ptr<Link> link, int database, ChangeListener changed, bool is_reader)
    : link_(std::move(link)), database_(database), changed_(changed), is_reader_(is_reader) {
    if (is_reader) link_->ExpectReading();
}

Postgresql::~Postgresql() {
    put_off_.clear();
    going_.reset();
    DropKept();
}

std::unique_ptr<SqlStatement> Postgresql::Make(std::string_view text, bool is_kept) {
    std::string name = is_kept ? "s" + std::to_string(++last_name_) : "";
    return std::make_unique<PostgresqlStatement>(*this, ToServer(unions_.empty() ? text : WithUnions(text)),
                                                 std::move(name));
}

/// A query that names such a table finds one of that name in front of it.
std::string Postgresql::WithUnions(std::string_view text) const {
    std::string with;
    for (const LibraryUnion& each : unions_)
        if (HoldsWord(text, each.table))
            with.append(with.empty() ? "WITH " : ", ").append(each.table).append(" AS (" + each.text + ")");
    return with.append(with.empty() ? "" : " ").append(text);
}

SqlStatement* Postgresql::PathsInside(const char* table, const std::string& folder) {
    SqlStatement* const query = Kept(FolderRowsTextOf(table));
    return query != nullptr ? &query->Fill(folder + '/', folder + '0') : nullptr;
}

const char* Postgresql::PathOrder(const char* table) {
    const std::string text =
        std::string("SELECT EXISTS (SELECT 1 FROM ") + table + " WHERE " + kIsMapped + ")";
    return Answer(text) == "t" ? "koli_bytes(path)" : "path";
}

Sql::Comparison Postgresql::PathComparison() const {
    return [](std::string_view a, std::string_view b) {
        std::string of_a, of_b;
        return ServerText(a, &of_a).compare(ServerText(b, &of_b));
    };
}

/// A connection that is lost has one of its own.
std::string Postgresql::ChangeMark() {
    return link_->is_lost() ? "lost" : Answer(kChangeMark);
}

const char* Postgresql::ColumnsText() const {
    return "SELECT attname FROM pg_attribute WHERE attrelid = to_regclass(quote_ident(?1))"
           " AND attnum > 0 AND NOT attisdropped ORDER BY attnum";
}

// ---- Failures

bool Postgresql::FailAs(SqlFailure failure) {
    if (link_->is_lost()) {
        in_transaction_ = is_begin_due_ = false;
        put_off_.clear();
        going_.reset();
    }
    if (!is_reader_ || failure_.reason.empty()) failure_ = std::move(failure);
    return false;
}

bool Postgresql::IsUsable() {
    return !link_->is_lost() || FailAs(LostFailure(link_->lost()));
}

// ---- Statements

/// Whether a statement has failed because somebody has dropped the library: the next connection makes it
/// anew, and that of the other database may have begun to. `back` takes the failed part of a transaction
/// back, '' = there is none.
bool Postgresql::IsLibraryGone(const SqlFailure& failure, const char* back) {
    if (!failure.is_missing || link_->is_lost()) return false;
    Exchange exchange(*link_);
    if (*back != '\0') exchange.Say(back);
    const size_t place = exchange.Say("SELECT 1 WHERE to_regclass('koli_schema') IS NULL");
    if (!exchange.Finish()) return false;
    if (PQntuples(exchange.TakeAnswer(place).get()) > 0) return true;
    Exchange own(*link_);
    own.Say("SELECT 1 FROM koli_schema WHERE name = $1", {{DatabaseName(database_), false}});
    return !own.Finish() || PQntuples(own.TakeAnswer(0).get()) == 0;
}

/// What stands before the first statement of a transaction.
void Postgresql::Open(Exchange& exchange) {
    if (std::exchange(is_begin_due_, false)) exchange.Say("BEGIN");
}

/// The answer to one statement; null on failure.
Result Postgresql::Ask(PostgresqlStatement& statement) {
    Result answer(nullptr, &PQclear);
    if (!IsUsable() || !Settle()) return answer;
    Exchange exchange(*link_);
    Open(exchange);
    if (in_transaction_) exchange.Say("SAVEPOINT now");
    const size_t place = exchange.Run(statement, statement.TakeParameters());
    if (in_transaction_) exchange.Say("RELEASE now");
    if (exchange.Finish()) return exchange.TakeAnswer(place);
    SqlFailure failure = exchange.failure();
    failure.passes = failure.passes || IsLibraryGone(failure, in_transaction_ ? "ROLLBACK TO now" : "");
    FailAs(std::move(failure));
    if (!in_transaction_) return answer;
    Exchange back(*link_);
    back.Say("ROLLBACK TO now");
    back.Say("RELEASE now");
    if (!back.Finish()) FailAs(back.failure());
    return answer;
}

void Postgresql::CountChange(const ServerStatement& server, int changed) {
    if (server.command != Command::kWrite || changed <= 0) return;
    changes_ += changed;
    if (changed_ != nullptr) changed_(server.table.c_str());
}

int Postgresql::Run(SqlStatement& statement) {
    auto& own = static_cast<PostgresqlStatement&>(statement);
    const ServerStatement& server = own.server();
    if (server.command < Command::kWrite) return Control(server);
    const Result answer = Ask(own);
    if (answer == nullptr) return -1;
    const bool is_write = server.command == Command::kWrite;
    const int changed = is_write ? static_cast<int>(strtol(PQcmdTuples(answer.get()), nullptr, 10)) : 0;
    CountChange(server, changed);
    return changed;
}

std::string Postgresql::Answer(std::string_view text, std::initializer_list<std::string_view> values) {
    const std::unique_ptr<SqlStatement> query = Prepare(text);
    int index = 0;
    for (const std::string_view value : values)
        query->Text(++index, value);
    return query->Next() ? std::string(query->Field(0)) : "";
}

// ---- Rows

Result Postgresql::Fetch(PostgresqlStatement& statement, bool* is_last) {
    const bool has_rows = statement.server().command == Command::kOther;
    if (is_reader_ && has_rows) return FetchSome(statement, is_last);
    *is_last = true;
    return Ask(statement);
}

Result Postgresql::FetchSome(PostgresqlStatement& statement, bool* is_last) {
    Result answer(nullptr, &PQclear);
    if (!IsUsable()) return answer;
    Exchange exchange(*link_);
    if (statement.cursor.empty()) {
        if (cursors_++ == 0) exchange.Say("BEGIN READ ONLY");
        statement.cursor = "c" + std::to_string(++last_name_);
        exchange.Say("DECLARE " + statement.cursor + " NO SCROLL CURSOR FOR " + statement.server().text,
                     statement.TakeParameters());
    }
    const size_t place = exchange.Say("FETCH " + std::to_string(fetched_) + " FROM " + statement.cursor);
    if (exchange.Finish()) {
        answer = exchange.TakeAnswer(place);
        *is_last = PQntuples(answer.get()) < fetched_;
    } else {
        FailAs(exchange.failure());
    }
    return answer;
}

/// With the last cursor the transaction ends: a reader keeps the server from nothing.
void Postgresql::EndFetch(PostgresqlStatement& statement) {
    if (statement.cursor.empty()) return;
    const std::string cursor = std::exchange(statement.cursor, "");
    --cursors_;
    if (link_->is_lost()) return;
    Exchange exchange(*link_);
    exchange.Say(cursors_ > 0 ? "CLOSE " + cursor : "COMMIT");
    if (!exchange.Finish()) FailAs(exchange.failure());
}

// ---- What is put off

void Postgresql::SendPutOff(PutOff& put_off) {
    if (!going_) {
        going_.emplace(*link_);
        Open(*going_);
        first_put_off_ = going_->Say("SAVEPOINT later") + 1;
    }
    going_->Run(*put_off.statement, put_off.parameters);
}

int Postgresql::RunLater(SqlStatement& statement) {
    if (!in_transaction_) return Run(statement);
    if (!IsUsable()) return -1;
    auto& own = static_cast<PostgresqlStatement&>(statement);
    put_off_.push_back({&own, own.TakeParameters()});
    SendPutOff(put_off_.back());
    if (put_off_.size() % kPushEvery == 0) going_->Push();
    return put_off_.size() < kPutOffMax || Settle() ? 0 : -1;
}

/// Takes the row that has failed out, and sends the others again.
void Postgresql::DropPutOff(size_t place) {
    const auto bad = put_off_.begin() + static_cast<ptrdiff_t>(place);
    std::string scratch;
    const std::string_view first = bad->parameters.empty() ? "" : OwnBytes(bad->parameters[0].text, &scratch);
    lost_.push_back(going_->failure().reason + ": " + std::string(first));
    put_off_.erase(bad);
    going_.reset();
    going_.emplace(*link_);
    first_put_off_ = going_->Say("ROLLBACK TO later") + 1;
    for (PutOff& each : put_off_)
        SendPutOff(each);
}

bool Postgresql::Settle() {
    return SettleWith("", nullptr);
}

/// Sends `end` with the last of them, '' = nothing, and takes its answer.
bool Postgresql::SettleWith(const std::string& end, Result* answer) {
    while (going_) {
        const size_t release = going_->Say("RELEASE later");
        if (!end.empty()) going_->Say(end);
        if (going_->Finish()) {
            if (answer != nullptr) *answer = going_->TakeAnswer(release + 1);
            for (size_t i = 0; i < put_off_.size(); ++i)
                CountChange(put_off_[i].statement->server(), going_->Changed(first_put_off_ + i));
            put_off_.clear();
            going_.reset();
            return true;
        }
        const size_t place = going_->failed() - first_put_off_;
        SqlFailure failure = going_->failure();
        if (failure.passes || place >= put_off_.size() || IsLibraryGone(failure, "ROLLBACK TO later")) {
            failure.passes = true;  // the transaction can only be given up
            put_off_.clear();
            going_.reset();
            return FailAs(std::move(failure));
        }
        DropPutOff(place);
    }
    return true;
}

/// Before everything is taken back.
void Postgresql::Discard() {
    put_off_.clear();
    if (going_) going_->Finish();
    going_.reset();
}

// ---- Transactions

bool Postgresql::Begin() {
    if (!IsUsable()) return false;
    in_transaction_ = is_begin_due_ = true;
    return true;
}

int Postgresql::Control(const ServerStatement& server) {
    if (server.command == Command::kBegin) return Begin() ? 0 : -1;
    if (!IsUsable()) return -1;
    if (server.command == Command::kRollback) Discard();
    if (server.command == Command::kCommit && going_) return CommitPutOff(server.text);
    if (!Settle()) return -1;
    const bool is_end = server.command != Command::kSavepoint;
    if (is_end && is_begin_due_) {
        in_transaction_ = is_begin_due_ = false;
        return 0;
    }
    Exchange exchange(*link_);
    Open(exchange);
    const size_t place = exchange.Say(server.text);
    const bool is_done = exchange.Finish();
    if (is_end) in_transaction_ = false;
    if (!is_done) return FailAs(exchange.failure()) ? 0 : -1;
    return server.command != Command::kCommit || IsCommitted(exchange.TakeAnswer(place)) ? 0 : -1;
}

/// In one round trip with what has been put off.
int Postgresql::CommitPutOff(const std::string& commit) {
    Result answer(nullptr, &PQclear);
    if (!SettleWith(commit, &answer)) return -1;
    in_transaction_ = false;
    return IsCommitted(answer) ? 0 : -1;
}

/// A transaction that has failed answers a COMMIT with "ROLLBACK".
bool Postgresql::IsCommitted(const Result& answer) {
    return strcmp(PQcmdStatus(answer.get()), "COMMIT") == 0 ||
           FailAs({.reason = "the transaction had failed", .passes = true});
}

/// A commit that the server puts on its disk, and on its replica's where one is waited for, and with it all
/// before it; one that has nothing to say is not put there.
bool Postgresql::Harden() {
    if (!IsUsable()) return false;
    Exchange exchange(*link_);
    link_->TakeWarning();
    exchange.Say("BEGIN");
    exchange.Say("SET LOCAL synchronous_commit = on");
    exchange.Say("SELECT pg_logical_emit_message(true, 'koliindexd', '')");
    const int64_t changes = changes_;
    if (changes != hardened_) exchange.Say(kNoteChange, {{DatabaseName(database_), false}});
    const size_t place = exchange.Say("COMMIT");
    if (!exchange.Finish()) return FailAs(exchange.failure());
    if (!IsCommitted(exchange.TakeAnswer(place))) return false;
    // It was told to wait for its replica no longer: who knows whether that has it.
    std::string warning = link_->TakeWarning();
    hardened_ = changes;
    return warning.empty() || FailAs({.reason = std::move(warning), .passes = true});
}

}  // namespace koli::host
