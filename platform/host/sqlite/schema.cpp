#include "platform/host/sqlite/schema.h"

#include <cerrno>
#include <string_view>

#include "platform/host/sqlite/dialect.h"
#include "platform/kolidb.h"

namespace koli::host {
namespace {

/// Steps are history: a field that MediaInfo is given later is a step of its own.
constexpr const char kMediaTableColumns[] = R"((
    path TEXT NOT NULL PRIMARY KEY,
    title TEXT NOT NULL DEFAULT '',
    album TEXT NOT NULL DEFAULT '',
    artist TEXT NOT NULL DEFAULT '',
    genre TEXT NOT NULL DEFAULT '',
    composer TEXT NOT NULL DEFAULT '',
    comment TEXT NOT NULL DEFAULT '',
    track INTEGER NOT NULL DEFAULT 0,
    disc INTEGER NOT NULL DEFAULT 0,
    year INTEGER NOT NULL DEFAULT 0,
    duration REAL NOT NULL DEFAULT 0,
    audio_bitrate INTEGER NOT NULL DEFAULT 0,
    video_bitrate INTEGER NOT NULL DEFAULT 0,
    sample_rate INTEGER NOT NULL DEFAULT 0,
    channels INTEGER NOT NULL DEFAULT 0,
    width INTEGER NOT NULL DEFAULT 0,
    height INTEGER NOT NULL DEFAULT 0,
    file_size INTEGER NOT NULL DEFAULT 0,
    has_cover INTEGER NOT NULL DEFAULT 0,
    camera_make TEXT NOT NULL DEFAULT '',
    camera_model TEXT NOT NULL DEFAULT '',
    exposure_time TEXT NOT NULL DEFAULT '',
    f_number TEXT NOT NULL DEFAULT '',
    date_taken TEXT NOT NULL DEFAULT '',
    iso_speed INTEGER NOT NULL DEFAULT 0,
    ctime TEXT NOT NULL DEFAULT '',
    mtime TEXT NOT NULL DEFAULT ''
) WITHOUT ROWID;
)";
constexpr const char* kMediaTablesOfStep1[] = {"music", "video", "photo", "playlist"};
constexpr const char kDirectoryTableSql[] =
    "CREATE TABLE directory (path TEXT NOT NULL PRIMARY KEY, title TEXT NOT NULL DEFAULT '') WITHOUT "
    "ROWID;\n";

constexpr const char kProblemTableSql[] =
    "CREATE TABLE problem (path TEXT NOT NULL PRIMARY KEY, time TEXT NOT NULL DEFAULT '',"
    " reason TEXT NOT NULL DEFAULT '') WITHOUT ROWID;";

constexpr const char kProblemKindSql[] = "ALTER TABLE problem ADD COLUMN kind INTEGER NOT NULL DEFAULT 0;";

constexpr const char kPhotoTablesSql[] = R"(
CREATE TABLE photo_info (
    path TEXT NOT NULL PRIMARY KEY,
    name TEXT NOT NULL DEFAULT '',
    title TEXT NOT NULL DEFAULT '',
    description TEXT NOT NULL DEFAULT '',
    folder TEXT NOT NULL DEFAULT '',
    camera_make TEXT NOT NULL DEFAULT '',
    camera_model TEXT NOT NULL DEFAULT '',
    exposure_time TEXT NOT NULL DEFAULT '',
    f_number TEXT NOT NULL DEFAULT '',
    date_taken TEXT NOT NULL DEFAULT '',
    ctime TEXT NOT NULL DEFAULT '',
    width INTEGER NOT NULL DEFAULT 0,
    height INTEGER NOT NULL DEFAULT 0,
    iso_speed INTEGER NOT NULL DEFAULT 0,
    file_size INTEGER NOT NULL DEFAULT 0,
    status INTEGER NOT NULL DEFAULT 0,
    updated INTEGER NOT NULL DEFAULT 0
) WITHOUT ROWID;
CREATE TABLE video_desc (
    path TEXT NOT NULL PRIMARY KEY,
    title TEXT NOT NULL DEFAULT '',
    description TEXT NOT NULL DEFAULT ''
) WITHOUT ROWID;
CREATE TABLE video_comment (
    id INTEGER PRIMARY KEY,
    path TEXT NOT NULL DEFAULT '',
    userid INTEGER NOT NULL DEFAULT 0,
    time TEXT NOT NULL DEFAULT '',
    comment TEXT NOT NULL DEFAULT ''
);
CREATE INDEX video_comment_path ON video_comment (path);
CREATE TABLE photo_share (
    shareid INTEGER PRIMARY KEY,
    sharename TEXT NOT NULL UNIQUE,
    title TEXT NOT NULL DEFAULT '',
    description TEXT NOT NULL DEFAULT '',
    public TEXT NOT NULL DEFAULT 'f',
    hits INTEGER NOT NULL DEFAULT 0,
    cover TEXT NOT NULL DEFAULT '',
    enabled TEXT NOT NULL DEFAULT 't',
    is_subdir TEXT NOT NULL DEFAULT 'f',
    updated INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE photo_access_right (
    userid INTEGER NOT NULL,
    shareid INTEGER NOT NULL,
    time TEXT NOT NULL DEFAULT ''
);
CREATE INDEX photo_access_right_shareid ON photo_access_right (shareid);
CREATE TRIGGER photo_share_rights AFTER DELETE ON photo_share BEGIN
    DELETE FROM photo_access_right WHERE shareid = OLD.shareid;
END;
)";

constexpr const char kSettingTableSql[] =
    "CREATE TABLE setting (name TEXT NOT NULL PRIMARY KEY, value TEXT NOT NULL DEFAULT '') WITHOUT ROWID;";

template <size_t N>
std::string SqlList(const std::string_view (&words)[N]) {
    std::string list = "(";
    for (const std::string_view word : words)
        list.append(list.size() > 1 ? ", '" : "'").append(word).append("'");
    return list + ")";
}

/// "public = 't' or 'f'" for what was written there.
std::string TruthAssignment(const std::string& column) {
    const std::string value = "lower(trim(NEW." + column + "))";
    return column + " = CASE WHEN " + value + " IN " + SqlList(kTrueForms) + " THEN 't' WHEN " + value +
           " IN " + SqlList(kFalseForms) +
           " THEN 'f' ELSE RAISE(ABORT, 'invalid input for a boolean column') END";
}

std::string TruthTrigger(const std::string& name, const std::string& event) {
    return "CREATE TRIGGER " + name + " AFTER " + event +
           " ON photo_share WHEN NEW.public NOT IN ('t', 'f') OR NEW.enabled NOT IN ('t', 'f')"
           " OR NEW.is_subdir NOT IN ('t', 'f') BEGIN UPDATE photo_share SET " +
           TruthAssignment("public") + ", " + TruthAssignment("enabled") + ", " +
           TruthAssignment("is_subdir") + " WHERE shareid = NEW.shareid; END;\n";
}

std::string MediaTablesSql() {
    std::string schema = kDirectoryTableSql;
    for (const char* const table : kMediaTablesOfStep1)
        schema.append("CREATE TABLE ").append(table).append(" ").append(kMediaTableColumns);
    return schema;
}

}  // namespace

const Schema& SchemaOf(int database) {
    static const auto* const media = new Schema{MediaTablesSql(), kProblemTableSql, kProblemKindSql};
    static const auto* const photo =
        new Schema{kPhotoTablesSql + TruthTrigger("photo_share_inserted", "INSERT") +
                       TruthTrigger("photo_share_updated", "UPDATE OF public, enabled, is_subdir"),
                   kSettingTableSql};
    return database == KOLI_MEDIA_DB ? *media : *photo;
}

bool SchemaRun(Sqlite& sql, const Schema& schema, size_t version) {
    for (; version < schema.size(); ++version)
        if (!sql.ExecuteScript(schema[version] + "PRAGMA user_version=" + std::to_string(version + 1)))
            return false;
    return true;
}

bool SchemaUpgrade(Sqlite& sql, const Schema& schema) {
    const auto wanted = static_cast<int64_t>(schema.size());
    int64_t version = sql.QueryNumber("PRAGMA user_version");
    if (version > wanted) return sql.FailAs("its tables are of a later version", EACCES);
    if (version == wanted) return true;
    if (version < 0 || !sql.Begin()) return false;
    version = sql.QueryNumber("PRAGMA user_version");
    return version >= 0 && SchemaRun(sql, schema, static_cast<size_t>(version)) && sql.Execute("COMMIT") >= 0;
}

}  // namespace koli::host
