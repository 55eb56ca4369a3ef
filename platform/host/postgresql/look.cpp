// What a look at a library on a server finds.
#include <cstdlib>
#include <string>

#include "platform/host/postgresql/engine.h"
#include "platform/host/postgresql/schema.h"

namespace koli::host {
namespace {

constexpr const char* kTablesOfMedia[] = {"directory", "music", "photo", "playlist", "problem", "video"};
constexpr const char* kTablesOfPhotos[] = {"photo_access_right", "photo_info", "photo_share", "setting",
                                           "video_comment",      "video_desc"};

DatabaseFault FaultOf(const SqlFailure& failure) {
    return {failure.reason.empty() ? DatabaseState::kSound
            : failure.is_lock      ? DatabaseState::kLocked
            : failure.is_damage    ? DatabaseState::kDamaged
            : failure.is_denied    ? DatabaseState::kNotPermitted
                                   : DatabaseState::kUnreadable,
            failure.reason};
}

/// How the rows of a table are counted: by an index, and then beside it by the table itself, every byte of
/// each row looked at, both at one moment.
std::string CountText(const std::string& table, DatabaseCheck check) {
    std::string by_index = "SELECT count(*) FROM " + table;
    if (check == DatabaseCheck::kQuick) return by_index;
    return "SELECT (" + by_index + "), (SELECT count(hashtext(r::text)) FROM " + table +
           " r TABLESAMPLE SYSTEM (100))";
}

template <size_t N>
void LookAtTables(Postgresql& sql, const char* const (&tables)[N], DatabaseCheck check, DatabaseView* view) {
    for (const char* table : tables) {
        if (sql.Columns(table).empty()) {
            if (sql.failure().reason.empty())
                view->fault = {DatabaseState::kDamaged, std::string("there is no table ") + table};
            continue;
        }
        const auto rows = sql.Prepare(CountText(table, check));
        if (!rows->Next()) continue;
        view->counts.emplace_back(table, rows->Number(0));
        if (rows->columns() > 1 && rows->Number(0) != rows->Number(1))
            view->fault = {DatabaseState::kDamaged, std::string("an index of ") + table + " lacks rows"};
    }
}

/// What is wrong with the tables as a whole; kMissing when nobody has written yet.
DatabaseFault LookAtSchema(Postgresql& sql, int database) {
    const int version = ServerSchemaVersion(sql, database);
    if (!sql.failure().reason.empty()) return FaultOf(sql.failure());
    if (version < 0) return {DatabaseState::kMissing};
    if (version <= ServerSchemaKnown(database)) return {};
    return {DatabaseState::kUnknownSchema, "its tables are of a later version"};
}

constexpr const char kChanged[] =
    "SELECT extract(epoch FROM changed)::bigint FROM koli_schema WHERE name = ?1";

}  // namespace

DatabaseView PostgresqlEngine::Look(int database, DatabaseCheck check) const {
    DatabaseView view;
    SqlFailure failure;
    const std::unique_ptr<Postgresql> sql = Connect(database, nullptr, true, &failure);
    view.fault = sql != nullptr ? LookAtSchema(*sql, database) : FaultOf(failure);
    if (sql != nullptr && sql->failure().reason.empty() && view.fault.state != DatabaseState::kMissing)
        view.changed = strtoll(sql->Answer(kChanged, {DatabaseName(database)}).c_str(), nullptr, 10);
    if (view.fault.state != DatabaseState::kSound) return view;
    if (database == KOLI_MEDIA_DB)
        LookAtTables(*sql, kTablesOfMedia, check, &view);
    else
        LookAtTables(*sql, kTablesOfPhotos, check, &view);
    if (!sql->failure().reason.empty()) view.fault = FaultOf(sql->failure());
    return view;
}

}  // namespace koli::host
