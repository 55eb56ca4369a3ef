#include "platform/host/postgresql/engine.h"

#include <utility>

#include "platform/host/postgresql/fence.h"
#include "platform/host/postgresql/libraries.h"
#include "platform/host/postgresql/schema.h"
#include "platform/host/postgresql/setup.h"
#include "platform/host/sql/engine_module.h"

namespace koli::host {
namespace {

// Each names what the texts of the layer, its speed or its promises stand on.  Tables are asked by path:
// reading a whole one is for what nothing else can answer, however little the server knows of their sizes.
// Commits are made durable by Harden.  A host that has vanished holds nothing for longer than a minute.
constexpr const char kSession[] =
    "SELECT current_setting('server_encoding'), EXISTS (SELECT 1 FROM pg_namespace"
    " WHERE nspname = ?1::text AND NOT has_schema_privilege(oid, 'USAGE')),"
    " set_config('standard_conforming_strings', 'on', false),"
    " set_config('search_path', coalesce(quote_ident(nullif(?1::text, '')), ''), false),"
    " set_config('extra_float_digits', '1', false),"
    " set_config('synchronous_commit', 'off', false), set_config('lock_timeout', ?2, false),"
    " set_config('statement_timeout', '0', false), set_config('enable_seqscan', 'off', false),"
    " set_config('jit', 'off', false), set_config('tcp_keepalives_idle', '30', false),"
    " set_config('tcp_keepalives_interval', '10', false), set_config('tcp_keepalives_count', '3', false)";
enum SessionColumn : int { kEncoding, kIsClosed };

constexpr const char kHasSchema[] = "SELECT count(*) FROM pg_namespace WHERE nspname = ?1";
constexpr const char kMakeSchema[] = "CREATE SCHEMA IF NOT EXISTS ";

}  // namespace

PostgresqlEngine::PostgresqlEngine(Conninfo conninfo, std::string library, std::string reader)
    : conninfo_(std::move(conninfo)),
      library_(std::move(library)),
      reader_(std::move(reader)),
      place_(conninfo_.Place() + " library " + library_) {}

std::string PostgresqlEngine::PlaceOf(int database) const {
    return std::string(DatabaseName(database)) + " of " + place_;
}

/// Sets the session up and goes into the library's schema; '' = into none.
bool PostgresqlEngine::Enter(Postgresql& sql, const std::string& library, bool may_make) const {
    const auto session = sql.Prepare(kSession);
    if (!session->Fill(library, std::to_string(Sql::kLockWaitMs)).Next()) return false;
    if (session->Field(kEncoding) != "UTF8")
        return sql.FailAs({.reason = "the server's database is not in UTF-8"});
    if (session->Field(kIsClosed) == "t")
        return sql.FailAs({.reason = "permission denied for schema " + library, .is_denied = true});
    session->Reset();
    if (!may_make || sql.Answer(kHasSchema, {library}) != "0") return sql.failure().reason.empty();
    return sql.Execute(kMakeSchema + QuotedName(library)) >= 0;
}

/// Goes into the schema of one of them, whose columns and functions are those of all.
bool PostgresqlEngine::EnterAll(Postgresql& sql) const {
    if (!Enter(sql, "", false)) return false;
    const std::vector<std::string> names = LibraryNames(sql);
    if (!names.empty() && !Enter(sql, names.front(), false)) return false;
    sql.ReadUnions(LibraryUnions(sql));
    return sql.failure().reason.empty();
}

std::unique_ptr<Postgresql> PostgresqlEngine::Connect(int database, Sql::ChangeListener changed,
                                                      bool is_reader, SqlFailure* failure) const {
    const bool is_other_role = is_reader && !reader_.empty();
    const Conninfo conninfo = is_other_role ? conninfo_.Changed("user", reader_) : conninfo_;
    std::unique_ptr<Link> link =
        Link::Connect(is_reader ? conninfo.ForReader() : conninfo.ForWriter(), failure);
    if (link == nullptr) return nullptr;
    auto sql = std::make_unique<Postgresql>(std::move(link), database, changed, is_reader);
    if (HasEveryLibrary() ? EnterAll(*sql) : Enter(*sql, library_, !is_reader)) return sql;
    *failure = sql->failure();
    return nullptr;
}

std::unique_ptr<Sql> PostgresqlEngine::Open(int database, Sql::ChangeListener changed,
                                            SqlFailure* failure) const {
    if (HasEveryLibrary()) {
        *failure = {.reason = LibraryNameRefusal(library_)};
        return nullptr;
    }
    std::unique_ptr<Postgresql> sql = Connect(database, changed, false, failure);
    if (sql == nullptr) return nullptr;
    if (!FenceTake(*sql, database) || !ServerSchemaUpgrade(*sql, database)) {
        *failure = sql->failure();
        return nullptr;
    }
    ViewsRefresh(*sql);  // of other programs: without them the library is none the worse
    return sql;
}

/// A library that nobody has written to yet has no tables.
std::unique_ptr<Sql> PostgresqlEngine::OpenToRead(int database, SqlFailure* failure) const {
    std::unique_ptr<Postgresql> sql = Connect(database, nullptr, true, failure);
    if (sql == nullptr || ServerSchemaVersion(*sql, database) > 0) return sql;
    *failure = sql->failure();
    return nullptr;
}

std::vector<std::string> PostgresqlEngine::Libraries(SqlFailure* failure) const {
    const std::unique_ptr<Postgresql> sql = Connect(KOLI_MEDIA_DB, nullptr, true, failure);
    if (sql == nullptr) return {};
    std::vector<std::string> names = LibraryNames(*sql);
    *failure = sql->failure();
    return names;
}

bool PostgresqlEngine::IsWritten(int database, SqlFailure* failure) const {
    const std::unique_ptr<Postgresql> sql = Connect(KOLI_MEDIA_DB, nullptr, true, failure);
    return sql != nullptr && FenceIsHeld(*sql, database);
}

Repair PostgresqlEngine::Mend(int, const AlbumNames&) const {
    return {.error = "a PostgreSQL server is mended with its own tools", .is_refused = true};
}

namespace {

constexpr const char kUnreadable[] = "what stands behind \"postgresql:\" cannot be read";

std::unique_ptr<DatabaseEngine> MakeEngine(const ServerPlace& place, std::string* error) {
    Conninfo parsed(place.conninfo);
    if (!parsed.IsValid())
        *error = kUnreadable;
    else if (place.library != kEveryLibrary)
        *error = LibraryNameRefusal(place.library);
    if (!error->empty()) return nullptr;
    return std::make_unique<PostgresqlEngine>(std::move(parsed), place.library, place.reader);
}

ServerPlan SetUp(const ServerPlace& place, bool is_to_make) {
    const Conninfo parsed(place.conninfo);
    if (!parsed.IsValid()) return {.error = kUnreadable};
    return ServerSetup(parsed, place.library).Run(is_to_make);
}

}  // namespace
}  // namespace koli::host

extern "C" const koli::host::EngineModule koli_engine_module = {KOLI_VERSION, &koli::host::MakeEngine,
                                                                &koli::host::SetUp};
