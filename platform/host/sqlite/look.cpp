#include "platform/host/sqlite/look.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>

namespace koli::host {
namespace {

using Names = std::set<std::string>;

/// What a schema consists of, as text: "table photo_info", "column path of photo_info" ...
constexpr const char kPartsText[] =
    "SELECT type || ' ' || name AS part FROM sqlite_schema WHERE name NOT LIKE 'sqlite_stat%' UNION ALL "
    "SELECT 'column ' || c.name || ' of ' || t.name FROM sqlite_schema t, pragma_table_info(t.name) c "
    "WHERE t.type = 'table'";

DatabaseFault FaultOf(const SqlFailure& failure) {
    return {failure.reason.empty() ? DatabaseState::kSound
            : failure.is_lock      ? DatabaseState::kLocked
            : failure.is_damage    ? DatabaseState::kDamaged
                                   : DatabaseState::kUnreadable,
            failure.reason};
}

bool HasFailed(const Sql& reader) {
    return !reader.failure().reason.empty();
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
std::string Answer(Sql& reader, const std::string& text) {
    const auto rows = reader.Prepare(text);
    return rows != nullptr && rows->Next() ? std::string(rows->Field(0)) : "";
}

Names PartsOf(Sql& sql) {
    Names parts;
    const auto rows = sql.Prepare(kPartsText);
    while (rows != nullptr && rows->Next())
        parts.emplace(rows->Field(0));
    return parts;
}

/// What the steps of a schema make up to a version, in a database of no file.
Names PartsAt(const Schema& schema, size_t version) {
    SqlFailure failure;
    const std::unique_ptr<Sqlite> sql = Sqlite::Open(":memory:", nullptr, &failure);
    for (size_t step = 0; sql != nullptr && step < version; ++step)
        sql->ExecuteScript(schema[step]);
    return sql != nullptr ? PartsOf(*sql) : Names();
}

DatabaseFault LookAtSchema(Sql& reader, const Schema& schema) {
    const std::string version_text = Answer(reader, "PRAGMA user_version");
    const Names parts = PartsOf(reader);
    if (HasFailed(reader)) return FaultOf(reader.failure());
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

/// The first row of every table, and the number of rows where nothing else looks at all of them.
void LookAtTables(Sql& reader, const Names& parts, DatabaseCheck check, DatabaseView* view) {
    constexpr std::string_view kTable = "table ";
    for (const std::string& part : parts) {
        const std::string name = part.starts_with(kTable) ? part.substr(kTable.size()) : "";
        if (name.empty() || reader.Columns(name).empty()) continue;
        // A failure hides no other table.
        const auto first = reader.Prepare("SELECT * FROM " + name + " LIMIT 1");
        const bool is_readable = first != nullptr && (first->Next() || !HasFailed(reader));
        if (check == DatabaseCheck::kThorough || !is_readable) continue;
        const auto rows = reader.Prepare("SELECT count(*) FROM " + name);
        if (rows != nullptr && rows->Next()) view->counts.emplace_back(name, rows->Number(0));
    }
}

}  // namespace

bool DatabaseIsDenied(const std::string& file) {
    for (const char* end : {"", "-wal", "-shm"})
        if (access((file + end).c_str(), R_OK) != 0 && errno == EACCES) return true;
    return false;
}

DatabaseView DatabaseLook(const std::string& file, const Schema& schema, DatabaseCheck check) {
    DatabaseView view{.fault = LookAtFile(file)};
    DatabaseFault& fault = view.fault;
    if (fault.state != DatabaseState::kSound) return view;
    SqlFailure failure;
    const std::unique_ptr<Sqlite> reader = Sqlite::OpenToRead(file, &failure);
    if (reader == nullptr) {
        fault = DatabaseIsDenied(file) ? DatabaseFault{DatabaseState::kNotPermitted, strerror(EACCES)}
                                       : FaultOf(failure);
        return view;
    }
    fault = LookAtSchema(*reader, schema);
    if (fault.state == DatabaseState::kUnknownSchema || HasFailed(*reader)) return view;
    LookAtTables(*reader, PartsAt(schema, schema.size()), check, &view);
    if (fault.state == DatabaseState::kSound) fault = FaultOf(reader->failure());
    if (fault.state != DatabaseState::kSound || check == DatabaseCheck::kQuick) return view;
    const std::string found = Answer(*reader, "PRAGMA integrity_check(1)");
    fault = FaultOf(reader->failure());
    if (fault.state == DatabaseState::kSound && found != "ok") fault = {DatabaseState::kDamaged, found};
    return view;
}

}  // namespace koli::host
