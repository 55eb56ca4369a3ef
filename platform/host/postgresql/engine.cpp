#include "platform/host/postgresql/engine.h"

#include <utility>

#include "platform/host/postgresql/fence.h"
#include "platform/host/postgresql/schema.h"
#include "platform/host/sql/engine_module.h"

namespace koli::host {
namespace {

// Each names what the texts of the layer, its speed or its promises stand on.  Tables are asked by path:
// reading a whole one is for what nothing else can answer, however little the server knows of their sizes.
// Commits are made durable by Harden.  A host that has vanished holds nothing for longer than a minute.
constexpr const char kSession[] =
    "SELECT current_setting('server_encoding'), set_config('standard_conforming_strings', 'on', false),"
    " set_config('search_path', quote_ident(?1), false), set_config('extra_float_digits', '1', false),"
    " set_config('synchronous_commit', 'off', false), set_config('lock_timeout', ?2, false),"
    " set_config('statement_timeout', '0', false), set_config('enable_seqscan', 'off', false),"
    " set_config('jit', 'off', false), set_config('tcp_keepalives_idle', '30', false),"
    " set_config('tcp_keepalives_interval', '10', false), set_config('tcp_keepalives_count', '3', false)";
constexpr int kEncodingColumn = 0;

constexpr const char kHasSchema[] = "SELECT count(*) FROM pg_namespace WHERE nspname = ?1";
constexpr const char kMakeSchema[] = "CREATE SCHEMA IF NOT EXISTS ";

/// As a name in a statement.
std::string Quoted(const std::string& name) {
    std::string quoted = "\"";
    for (const char c : name)
        quoted.append(c == '"' ? 2 : 1, c);
    return quoted + '"';
}

}  // namespace

PostgresqlEngine::PostgresqlEngine(Conninfo conninfo, std::string library)
    : conninfo_(std::move(conninfo)),
      library_(std::move(library)),
      place_(conninfo_.Place() + " library " + library_) {}

std::string PostgresqlEngine::PlaceOf(int database) const {
    return std::string(DatabaseName(database)) + " of " + place_;
}

/// Sets the session up and goes into the library's schema.
bool PostgresqlEngine::Enter(Postgresql& sql, bool may_make) const {
    const auto session = sql.Prepare(kSession);
    if (!session->Fill(library_, std::to_string(Sql::kLockWaitMs)).Next()) return false;
    if (session->Field(kEncodingColumn) != "UTF8")
        return sql.FailAs({.reason = "the server's database is not in UTF-8"});
    session->Reset();
    if (!may_make || sql.Answer(kHasSchema, {library_}) != "0") return sql.failure().reason.empty();
    return sql.Execute(kMakeSchema + Quoted(library_)) >= 0;
}

std::unique_ptr<Postgresql> PostgresqlEngine::Connect(int database, Sql::ChangeListener changed,
                                                      bool is_reader, SqlFailure* failure) const {
    std::unique_ptr<Link> link =
        Link::Connect(is_reader ? conninfo_.ForReader() : conninfo_.ForWriter(), failure);
    if (link == nullptr) return nullptr;
    auto sql = std::make_unique<Postgresql>(std::move(link), database, changed, is_reader);
    if (Enter(*sql, !is_reader)) return sql;
    *failure = sql->failure();
    return nullptr;
}

std::unique_ptr<Sql> PostgresqlEngine::Open(int database, Sql::ChangeListener changed,
                                            SqlFailure* failure) const {
    std::unique_ptr<Postgresql> sql = Connect(database, changed, false, failure);
    if (sql == nullptr || (FenceTake(*sql, database) && ServerSchemaUpgrade(*sql, database))) return sql;
    *failure = sql->failure();
    return nullptr;
}

/// A library that nobody has written to yet has no tables.
std::unique_ptr<Sql> PostgresqlEngine::OpenToRead(int database, SqlFailure* failure) const {
    std::unique_ptr<Postgresql> sql = Connect(database, nullptr, true, failure);
    if (sql == nullptr || ServerSchemaVersion(*sql, database) > 0) return sql;
    *failure = sql->failure();
    return nullptr;
}

Repair PostgresqlEngine::Mend(int, const AlbumNames&) const {
    return {.error = "a PostgreSQL server is mended with its own tools", .is_refused = true};
}

namespace {

std::unique_ptr<DatabaseEngine> MakeEngine(const std::string& conninfo, const std::string& library,
                                           std::string* error) {
    Conninfo parsed(conninfo);
    if (parsed.IsValid()) return std::make_unique<PostgresqlEngine>(std::move(parsed), library);
    *error = "what stands behind \"postgresql:\" cannot be read";
    return nullptr;
}

}  // namespace
}  // namespace koli::host

extern "C" const koli::host::EngineModule koli_engine_module = {KOLI_VERSION, &koli::host::MakeEngine};
