#include "platform/host/schema.h"

#include <iterator>
#include <string_view>

#include "platform/host/boolean_forms.h"

namespace koli::host {
namespace {

constexpr const char kText[] = "TEXT NOT NULL DEFAULT ''";
constexpr const char kNumber[] = "INTEGER NOT NULL DEFAULT 0";

struct Column {
    const char* name;
    const char* type;
};

constexpr Column kMediaColumns[] = {
    {"path", "TEXT NOT NULL PRIMARY KEY"},
    {"title", kText},
    {"album", kText},
    {"artist", kText},
    {"genre", kText},
    {"composer", kText},
    {"comment", kText},
    {"track", kNumber},
    {"disc", kNumber},
    {"year", kNumber},
    {"duration", "REAL NOT NULL DEFAULT 0"},  // seconds
    {"audio_bitrate", kNumber},
    {"video_bitrate", kNumber},
    {"sample_rate", kNumber},
    {"channels", kNumber},
    {"width", kNumber},
    {"height", kNumber},
    {"file_size", kNumber},
    {"has_cover", kNumber},
    {"camera_make", kText},
    {"camera_model", kText},
    {"exposure_time", kText},
    {"f_number", kText},
    {"date_taken", kText},
    {"iso_speed", kNumber},
    {"ctime", kText},
    {"mtime", kText},
};

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

/// The names of the columns from `first` on, each with `before` in front, separated by commas.
std::string ColumnList(size_t first, const char* before) {
    std::string list;
    for (size_t i = first; i < std::size(kMediaColumns); ++i)
        list.append(i > first ? ", " : "").append(before).append(kMediaColumns[i].name);
    return list;
}

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
    std::string columns;
    for (const Column& column : kMediaColumns)
        columns.append(columns.empty() ? "" : ", ").append(column.name).append(" ").append(column.type);
    std::string schema = "CREATE TABLE directory (path TEXT NOT NULL PRIMARY KEY, title " +
                         std::string(kText) + ") WITHOUT ROWID;\n";
    for (int i = 0; i < kMediaStoreTables; ++i)
        schema += "CREATE TABLE " + std::string(kMediaTables[i]) + " (" + columns + ") WITHOUT ROWID;\n";
    return schema;
}

}  // namespace

std::vector<std::string> MediaSchemaSteps() {
    return {MediaTablesSql(), kProblemTableSql, kProblemKindSql};
}

std::vector<std::string> PhotoSchemaSteps() {
    return {kPhotoTablesSql + TruthTrigger("photo_share_inserted", "INSERT") +
                TruthTrigger("photo_share_updated", "UPDATE OF public, enabled, is_subdir"),
            kSettingTableSql};
}

std::string MediaSaveSql(const char* table) {
    std::string values, assignments;
    for (size_t i = 0; i < std::size(kMediaColumns); ++i) {
        const char* const name = kMediaColumns[i].name;
        values.append(i > 0 ? ", ?" : "?").append(std::to_string(i + 1));
        if (i > 0) assignments.append(i > 1 ? ", " : "").append(name).append(" = excluded.").append(name);
    }
    const std::string own = std::string(table) + ".";
    std::string text = "INSERT INTO " + std::string(table) + " (" + ColumnList(0, "") + ") VALUES (" + values;
    text.append(") ON CONFLICT (path) DO UPDATE SET ").append(assignments).append(" WHERE (");
    text.append(ColumnList(1, own.c_str())).append(") IS DISTINCT FROM (").append(ColumnList(1, "excluded."));
    return text.append(")");
}

}  // namespace koli::host
