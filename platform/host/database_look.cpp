#include "platform/host/database_look.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <set>

#include "platform/host/schema.h"
#include "platform/host/sql.h"
#include "platform/host/sql_reader.h"

namespace koli::host {
namespace {

using Names = std::set<std::string>;

/// What a schema consists of, as text: "table photo_info", "column path of photo_info" ...
constexpr const char kPartsText[] =
    "SELECT type || ' ' || name AS part FROM sqlite_schema WHERE name NOT LIKE 'sqlite_stat%' UNION ALL "
    "SELECT 'column ' || c.name || ' of ' || t.name FROM sqlite_schema t, pragma_table_info(t.name) c "
    "WHERE t.type = 'table'";

DatabaseFault FaultOf(SqlReader::Failure failure, const std::string& reason) {
    switch (failure) {
        case SqlReader::Failure::kNone:
            return {};
        case SqlReader::Failure::kLocked:
            return {DatabaseState::kLocked, reason};
        case SqlReader::Failure::kDamaged:
            return {DatabaseState::kDamaged, reason};
        case SqlReader::Failure::kOther:
            break;
    }
    return {DatabaseState::kUnreadable, reason};
}

DatabaseFault FaultOf(const SqlReader& reader) {
    return FaultOf(reader.failure(), reader.error());
}

/// What can be told before the engine looks at it.
DatabaseFault LookAtFile(const std::string& file) {
    const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        const bool is_missing = errno == ENOENT || errno == ENOTDIR;
        const bool is_refused = errno == EACCES || errno == EPERM;
        if (is_missing) return {DatabaseState::kMissing};
        return {is_refused ? DatabaseState::kNotPermitted : DatabaseState::kUnreadable, strerror(errno)};
    }
    struct stat status;
    const bool is_file = fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    close(fd);
    if (!is_file) return {DatabaseState::kUnreadable, "it is no regular file"};
    struct stat log;
    // The engine makes a new database of an empty file.
    const bool is_empty = status.st_size == 0 && stat((file + "-wal").c_str(), &log) != 0;
    return {is_empty ? DatabaseState::kMissing : DatabaseState::kSound};
}

/// The first field of the first row; '' when there is none.
std::string Answer(SqlReader& reader, const std::string& text) {
    const auto rows = reader.Query(text);
    return rows != nullptr && rows->Next() ? std::string(rows->Field(0)) : "";
}

Names PartsOf(SqlReader& reader) {
    Names parts;
    const auto rows = reader.Query(kPartsText);
    while (rows != nullptr && rows->Next())
        parts.emplace(rows->Field(0));
    return parts;
}

/// What the steps of a schema make up to a version, in a database of no file.
Names PartsAt(const std::vector<std::string>& schema, size_t version) {
    std::string error;
    Names parts;
    const std::unique_ptr<Sql> sql = Sql::Open(":memory:", nullptr, &error);
    for (size_t step = 0; sql != nullptr && step < version; ++step)
        sql->ExecuteScript(schema[step]);
    const auto rows = sql != nullptr ? sql->Query(kPartsText) : nullptr;
    for (int row = 0; rows != nullptr && row < rows->count(); ++row)
        parts.emplace(rows->Field(row, "part"));
    return parts;
}

DatabaseFault LookAtSchema(SqlReader& reader, const std::vector<std::string>& schema) {
    const std::string version_text = Answer(reader, "PRAGMA user_version");
    const Names parts = PartsOf(reader);
    if (reader.failed()) return FaultOf(reader);
    const long version = strtol(version_text.c_str(), nullptr, 10);
    const auto known = static_cast<long>(schema.size());
    if (version < 0 || version > known)
        return {DatabaseState::kUnknownSchema,
                "its version is " + version_text + ", this program knows " + std::to_string(known)};
    if (version == 0 && parts.empty()) return {};  // the daemon is about to fill it
    bool has_any = false;
    std::string missing;
    for (const std::string& part :
         PartsAt(schema, version == 0 ? schema.size() : static_cast<size_t>(version))) {
        const bool has = parts.contains(part);
        has_any |= has;
        if (!has && missing.empty()) missing = "there is no " + part;
    }
    if (!has_any) return {DatabaseState::kUnknownSchema, "it holds none of the tables"};
    if (version == 0 && missing.empty()) missing = "its version is 0";
    return missing.empty() ? DatabaseFault{} : DatabaseFault{DatabaseState::kDamaged, missing};
}

/// The first row of every table, and the number of rows.
void LookAtTables(SqlReader& reader, const Names& parts,
                  std::vector<std::pair<std::string, int64_t>>* counts) {
    constexpr std::string_view kTable = "table ";
    for (const std::string& part : parts) {
        const std::string name = part.starts_with(kTable) ? part.substr(kTable.size()) : "";
        if (name.empty() || !reader.HasTable(name.c_str())) continue;
        // A failure hides no other table.
        const auto first = reader.Query("SELECT * FROM " + name + " LIMIT 1");
        const bool is_readable = first != nullptr && (first->Next() || !reader.failed());
        if (counts == nullptr || !is_readable) continue;
        const auto rows = reader.Query("SELECT count(*) FROM " + name);
        if (rows != nullptr && rows->Next()) counts->emplace_back(name, rows->Number(0));
    }
}

}  // namespace

const char* DatabaseStateName(DatabaseState state) {
    switch (state) {
        case DatabaseState::kSound:
            return "sound";
        case DatabaseState::kMissing:
            return "not created yet";
        case DatabaseState::kDamaged:
            return "damaged";
        case DatabaseState::kNotPermitted:
            return "not permitted";
        case DatabaseState::kUnknownSchema:
            return "of an unknown schema";
        case DatabaseState::kLocked:
            return "locked";
        case DatabaseState::kUnreadable:
            return "not readable";
    }
    return "";
}

std::vector<DatabaseKind> DatabaseKinds() {
    return {{"media.db", MediaSchemaSteps()}, {"photo.db", PhotoSchemaSteps()}};
}

DatabaseFault DatabaseLook(const std::string& file, const std::vector<std::string>& schema,
                           DatabaseCheck check, std::vector<std::pair<std::string, int64_t>>* counts) {
    if (const DatabaseFault fault = LookAtFile(file); fault.state != DatabaseState::kSound) return fault;
    std::string error;
    SqlReader::Failure failure = SqlReader::Failure::kNone;
    const std::unique_ptr<SqlReader> reader = SqlReader::Open(file, &error, &failure);
    if (reader == nullptr) return FaultOf(failure, error);
    DatabaseFault fault = LookAtSchema(*reader, schema);
    if (fault.state == DatabaseState::kUnknownSchema || reader->failed()) return fault;
    LookAtTables(*reader, PartsAt(schema, schema.size()), counts);
    if (fault.state == DatabaseState::kSound && reader->failed()) fault = FaultOf(*reader);
    if (fault.state != DatabaseState::kSound || check == DatabaseCheck::kQuick) return fault;
    const std::string found = Answer(*reader, "PRAGMA integrity_check(1)");
    if (reader->failed()) return FaultOf(*reader);
    return found == "ok" ? DatabaseFault{} : DatabaseFault{DatabaseState::kDamaged, found};
}

}  // namespace koli::host
