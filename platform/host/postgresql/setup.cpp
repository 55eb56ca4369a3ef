#include "platform/host/postgresql/setup.h"

#include <algorithm>
#include <utility>

#include "platform/host/postgresql/libraries.h"
#include "platform/host/postgresql/link.h"
#include "platform/kolidb.h"

namespace koli::host {
namespace {

constexpr const char kWriter[] = "koli_writer";
constexpr const char kReader[] = "koli_reader";
constexpr const char kMaintenance[] = "postgres";  // the database of every server

// A commit waits for ever for a replica that is not connected.
constexpr const char kServer[] = R"(SELECT current_setting('server_version'),
    current_setting('server_version_num')::integer >= 150000, current_setting('server_encoding'),
    rolsuper, rolsuper OR rolcreaterole, rolsuper OR rolcreatedb, rolname,
    current_setting('synchronous_standby_names') <> '' AND pg_has_role('pg_read_all_stats', 'USAGE')
        AND NOT EXISTS (SELECT 1 FROM pg_stat_replication WHERE sync_state IN ('sync', 'quorum'))
    FROM pg_roles WHERE rolname = current_user)";
enum ServerColumn : int {
    kVersion,
    kIsNewEnough,
    kEncoding,
    kIsSuperuser,
    kMakesRoles,
    kMakesDatabases,
    kUser,
    kWaitsForReplica
};

constexpr const char kClosedRole[] =
    "SELECT rolname FROM pg_roles WHERE rolname IN (?1, ?2) AND NOT rolcanlogin";

constexpr const char kSchema[] = R"(SELECT pg_get_userbyid(nspowner),
    EXISTS (SELECT 1 FROM pg_class WHERE relnamespace = n.oid AND relname = 'koli_schema'),
    EXISTS (SELECT 1 FROM pg_class WHERE relnamespace = n.oid),
    coalesce((SELECT pg_has_role(oid, n.nspowner, 'USAGE') FROM pg_roles WHERE rolname = 'koli_writer'), false)
    FROM pg_namespace n WHERE nspname = ?1)";
enum SchemaColumn : int { kOwner, kIsLibrary, kIsUsed, kIsWriters };

constexpr const char kReadsAll[] = R"(SELECT NOT EXISTS (
    SELECT 1 FROM pg_namespace n
    JOIN pg_class s ON s.relnamespace = n.oid AND s.relname = 'koli_schema'
    JOIN pg_class t ON t.relnamespace = n.oid AND t.relkind = 'r'
    WHERE NOT coalesce((SELECT has_schema_privilege(oid, n.oid, 'USAGE') AND has_table_privilege(oid, t.oid, 'SELECT')
                        FROM pg_roles WHERE rolname = 'koli_reader'), false)))";

constexpr const char kReadsNew[] = R"(SELECT count(DISTINCT defaclobjtype) = 2
    FROM pg_default_acl CROSS JOIN aclexplode(defaclacl) AS acl
    WHERE defaclnamespace = 0 AND pg_get_userbyid(defaclrole) = 'koli_writer'
        AND pg_get_userbyid(acl.grantee) = 'koli_reader'
        AND (defaclobjtype, acl.privilege_type) IN (('n', 'USAGE'), ('r', 'SELECT')))";

/// Whether the role has a right, as a question; a role that there is not has none.
std::string Asks(const std::string& right, const char* role) {
    return "SELECT coalesce((SELECT " + right + " FROM pg_roles WHERE rolname = '" + role + "'), false)";
}

}  // namespace

bool ServerSetup::Refuse(const std::string& reason) {
    if (plan_.error.empty()) plan_.error = reason;
    return false;
}

void ServerSetup::Add(const char* kind, const std::string& name, bool is_missing) {
    plan_.steps.push_back({kind, name, is_missing});
}

bool ServerSetup::HasRole(const char* role) const {
    return sql_->Answer("SELECT count(*) FROM pg_roles WHERE rolname = ?1", {role}) == "1";
}

// ---- Looking

bool ServerSetup::RefuseWords() {
    if (conninfo_.HasPassword())
        return Refuse(
            "everybody can read a command line: the password belongs in ~/.pgpass, or in PGPASSWORD");
    if (conninfo_.ValueOf("dbname").empty()) return Refuse("which database? add dbname=NAME");
    if (HasControlCharacters(conninfo_.Text())) return Refuse("a conninfo has no control characters");
    const std::string refusal = LibraryNameRefusal(library_);
    return refusal.empty() || Refuse(refusal);
}

/// To the database, or while it is not there to the one that is always there.
bool ServerSetup::Connect() {
    SqlFailure failure, ignored;
    std::unique_ptr<Link> link = Link::Connect(conninfo_.ForWriter(), &failure);
    has_database_ = link != nullptr;
    if (!has_database_) link = Link::Connect(conninfo_.Changed("dbname", kMaintenance).ForWriter(), &ignored);
    if (link == nullptr) return Refuse(failure.reason);
    sql_ = std::make_unique<Postgresql>(std::move(link), KOLI_MEDIA_DB, nullptr, false);
    // What others have put into the schema `public` must not be run by an administrator.
    if (sql_->Execute("SELECT pg_catalog.set_config('search_path', '', false)") < 0)
        return Refuse(sql_->failure().reason);
    const std::string known =
        sql_->Answer("SELECT count(*) FROM pg_database WHERE datname = ?1", {conninfo_.ValueOf("dbname")});
    return has_database_ || known == "0" || Refuse(failure.reason);
}

bool ServerSetup::LookAtServer() {
    const auto server = sql_->Prepare(kServer);
    if (!server->Next()) return Refuse(sql_->failure().reason);
    const auto is = [&server](ServerColumn column) { return server->Field(column) == "t"; };
    is_superuser_ = is(kIsSuperuser);
    user_ = server->Field(kUser);
    if (!is(kIsNewEnough))
        return Refuse("the server is PostgreSQL " + std::string(server->Field(kVersion)) +
                      "; version 15 or a later one is needed");
    if (has_database_ && server->Field(kEncoding) != "UTF8")
        return Refuse("the database is in " + std::string(server->Field(kEncoding)) +
                      "; one in UTF-8 is needed");
    if (is(kWaitsForReplica))
        return Refuse(
            "the server waits for a synchronous replica, and none is connected: nothing could be stored");
    const bool has_roles = HasRole(kWriter) && HasRole(kReader);
    const std::string closed = sql_->Answer(kClosedRole, {kWriter, kReader});
    if (!closed.empty()) return Refuse("the role " + closed + " may not log in");
    Add("role", kWriter, !HasRole(kWriter));
    Add("role", kReader, !HasRole(kReader));
    Add("database", conninfo_.ValueOf("dbname"), !has_database_);
    if (!has_roles && !is(kMakesRoles))
        return Refuse(user_ + " may not make roles; connect as one who may, such as user=postgres");
    return has_database_ || is(kMakesDatabases) ||
           Refuse(user_ + " may not make databases; connect as one who may, such as user=postgres");
}

bool ServerSetup::LookAtSchema() {
    const auto schema = sql_->Prepare(kSchema);
    const bool is_there = has_database_ && schema->Fill(library_).Next();
    Add("schema", library_, !is_there);
    if (!is_there) return true;
    if (schema->Field(kIsUsed) == "t" && schema->Field(kIsLibrary) != "t")
        return Refuse("there is a schema " + library_ + " of something else");
    return schema->Field(kIsWriters) == "t" ||
           Refuse("the schema " + library_ + " is " + std::string(schema->Field(kOwner)) +
                  "'s; it has to be " + kWriter + "'s, with all that is in it");
}

/// In the order in which they can be made; the schema is between the rights and the views.
std::vector<ServerSetup::Part> ServerSetup::Parts() const {
    const std::string database = QuotedName(conninfo_.ValueOf("dbname"));
    const std::string writer = kWriter, reader = kReader;
    std::vector<Part> parts = {
        {"right",
         writer + " makes libraries",
         Asks("has_database_privilege(oid, current_database(), 'CREATE')", kWriter),
         {"GRANT CONNECT, CREATE ON DATABASE " + database + " TO " + writer}},
        {"right",
         reader + " connects",
         Asks("has_database_privilege(oid, current_database(), 'CONNECT')", kReader),
         {"GRANT CONNECT ON DATABASE " + database + " TO " + reader}},
        {"right",
         reader + " reads new libraries",
         kReadsNew,
         {"ALTER DEFAULT PRIVILEGES FOR ROLE " + writer + " GRANT USAGE ON SCHEMAS TO " + reader,
          "ALTER DEFAULT PRIVILEGES FOR ROLE " + writer + " GRANT SELECT ON TABLES TO " + reader}}};
    if (!is_superuser_)
        parts.insert(parts.begin(), {"right",
                                     user_ + " acts as " + writer,
                                     Asks("pg_has_role(current_user, oid, 'USAGE')", kWriter),
                                     {"GRANT " + writer + " TO CURRENT_USER"}});
    Part known{"right", reader + " reads the libraries that there are", kReadsAll, {}};
    for (const std::string& name : has_database_ ? LibraryNames(*sql_) : std::vector<std::string>()) {
        known.make.push_back("GRANT USAGE ON SCHEMA " + QuotedName(name) + " TO " + reader);
        known.make.push_back("GRANT SELECT ON ALL TABLES IN SCHEMA " + QuotedName(name) + " TO " + reader);
    }
    if (!known.make.empty()) parts.push_back(known);
    return parts;
}

/// As the role that makes them, which need not be allowed to read every library.
bool ServerSetup::AreViewsDue() {
    const std::string may_act = Asks("pg_has_role(current_user, oid, 'MEMBER')", kWriter);
    if (!has_database_ || sql_->Answer(may_act) != "t") return true;
    if (sql_->Execute(std::string("SET ROLE ") + kWriter) < 0) return true;
    const bool are_due = !HasViewSchema(*sql_) || !ViewsDue(*sql_).empty();
    sql_->Execute("RESET ROLE");
    return are_due;
}

bool ServerSetup::Look() {
    if (!RefuseWords() || !Connect() || !LookAtServer()) return false;
    for (const Part& part : Parts())
        Add(part.kind, part.name, !has_database_ || sql_->Answer(part.ask) != "t");
    if (!LookAtSchema()) return false;
    Add("view", "one of each table for all libraries", AreViewsDue());
    return sql_->failure().reason.empty() || Refuse(sql_->failure().reason);
}

// ---- Making

bool ServerSetup::Execute(const std::string& statement) {
    return sql_->Execute(statement) >= 0 || Refuse(sql_->failure().reason + " (" + statement + ")");
}

/// Roles and the database, which no transaction can hold.
bool ServerSetup::MakeOutside() {
    for (const char* role : {kWriter, kReader})
        if (!HasRole(role) && !Execute(std::string("CREATE ROLE ") + role + " LOGIN")) return false;
    if (has_database_) return true;
    if (!Execute("CREATE DATABASE " + QuotedName(conninfo_.ValueOf("dbname")) +
                 " TEMPLATE template0 ENCODING 'UTF8'"))
        return false;
    return Connect() && (has_database_ || Refuse("the database that was made cannot be connected to"));
}

bool ServerSetup::MakeInside() {
    if (!sql_->Begin()) return Refuse(sql_->failure().reason);
    for (const Part& part : Parts())
        if (sql_->Answer(part.ask) != "t")
            for (const std::string& statement : part.make)
                if (!Execute(statement)) return false;
    if (sql_->Answer("SELECT count(*) FROM pg_namespace WHERE nspname = ?1", {library_}) == "0" &&
        !Execute("CREATE SCHEMA " + QuotedName(library_) + " AUTHORIZATION " + kWriter))
        return false;
    return Execute("COMMIT") && Execute(std::string("SET ROLE ") + kWriter) &&
           Execute(std::string("CREATE SCHEMA IF NOT EXISTS ") + kViewSchema) &&
           (ViewsRefresh(*sql_) || Refuse(sql_->failure().reason));
}

ServerPlan ServerSetup::Run(bool is_to_make) {
    if (Look() && is_to_make) plan_.is_made = MakeOutside() && MakeInside();
    plan_.place = "postgresql:" + conninfo_.Changed("user", kWriter).Text();
    plan_.reader = kReader;
    return std::move(plan_);
}

}  // namespace koli::host
