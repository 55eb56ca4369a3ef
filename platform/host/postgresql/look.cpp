// What a look at a library on a server finds.
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

/// Counts the rows of each table: that reads all of it.
template <size_t N>
void LookAtTables(Postgresql& sql, const char* const (&tables)[N], DatabaseView* view) {
    for (const char* table : tables) {
        if (sql.Columns(table).empty()) {
            if (sql.failure().reason.empty())
                view->fault = {DatabaseState::kDamaged, std::string("there is no table ") + table};
            continue;
        }
        const auto rows = sql.Prepare(std::string("SELECT count(*) FROM ") + table);
        if (rows->Next()) view->counts.emplace_back(table, rows->Number(0));
    }
}

}  // namespace

DatabaseView PostgresqlEngine::Look(int database, DatabaseCheck) const {
    DatabaseView view;
    SqlFailure failure;
    const std::unique_ptr<Postgresql> sql = Connect(nullptr, true, &failure);
    if (sql == nullptr) {
        view.fault = FaultOf(failure);
        return view;
    }
    const int version = ServerSchemaVersion(*sql, database);
    view.fault = FaultOf(sql->failure());
    if (view.fault.state != DatabaseState::kSound) return view;
    if (version < 0) {
        view.fault = {DatabaseState::kMissing};
        return view;
    }
    if (version > ServerSchemaKnown(database)) {
        view.fault = {DatabaseState::kUnknownSchema, "its tables are of a later version"};
        return view;
    }
    if (database == KOLI_MEDIA_DB)
        LookAtTables(*sql, kTablesOfMedia, &view);
    else
        LookAtTables(*sql, kTablesOfPhotos, &view);
    if (!sql->failure().reason.empty()) view.fault = FaultOf(sql->failure());
    return view;
}

}  // namespace koli::host
