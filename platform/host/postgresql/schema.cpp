#include "platform/host/postgresql/schema.h"

#include <cstdlib>
#include <vector>

#include "platform/host/sql/database_engine.h"

namespace koli::host {
namespace {

/// The statements of a step; the step at [n] makes version n + 1.  Steps are history: they are only ever
/// added.
using Step = std::vector<std::string>;
using Steps = std::vector<Step>;

constexpr const char kMediaColumns[] = R"((
    path text COLLATE "C" NOT NULL PRIMARY KEY,
    title text NOT NULL DEFAULT '',
    album text NOT NULL DEFAULT '',
    artist text NOT NULL DEFAULT '',
    genre text NOT NULL DEFAULT '',
    composer text NOT NULL DEFAULT '',
    comment text NOT NULL DEFAULT '',
    track bigint NOT NULL DEFAULT 0,
    disc bigint NOT NULL DEFAULT 0,
    year bigint NOT NULL DEFAULT 0,
    duration double precision NOT NULL DEFAULT 0,
    audio_bitrate bigint NOT NULL DEFAULT 0,
    video_bitrate bigint NOT NULL DEFAULT 0,
    sample_rate bigint NOT NULL DEFAULT 0,
    channels bigint NOT NULL DEFAULT 0,
    width bigint NOT NULL DEFAULT 0,
    height bigint NOT NULL DEFAULT 0,
    file_size bigint NOT NULL DEFAULT 0,
    has_cover bigint NOT NULL DEFAULT 0,
    camera_make text NOT NULL DEFAULT '',
    camera_model text NOT NULL DEFAULT '',
    exposure_time text NOT NULL DEFAULT '',
    f_number text NOT NULL DEFAULT '',
    date_taken text NOT NULL DEFAULT '',
    iso_speed bigint NOT NULL DEFAULT 0,
    ctime text NOT NULL DEFAULT '',
    mtime text NOT NULL DEFAULT ''
))";

constexpr const char kPhotoInfo[] = R"(CREATE TABLE photo_info (
    path text COLLATE "C" NOT NULL PRIMARY KEY,
    name text NOT NULL DEFAULT '',
    title text NOT NULL DEFAULT '',
    description text NOT NULL DEFAULT '',
    folder text COLLATE "C" NOT NULL DEFAULT '',
    camera_make text NOT NULL DEFAULT '',
    camera_model text NOT NULL DEFAULT '',
    exposure_time text NOT NULL DEFAULT '',
    f_number text NOT NULL DEFAULT '',
    date_taken text NOT NULL DEFAULT '',
    ctime text NOT NULL DEFAULT '',
    width bigint NOT NULL DEFAULT 0,
    height bigint NOT NULL DEFAULT 0,
    iso_speed bigint NOT NULL DEFAULT 0,
    file_size bigint NOT NULL DEFAULT 0,
    status bigint NOT NULL DEFAULT 0,
    updated bigint NOT NULL DEFAULT 0
))";

constexpr const char kVideoComment[] = R"(CREATE TABLE video_comment (
    id bigint PRIMARY KEY,
    path text COLLATE "C" NOT NULL DEFAULT '',
    userid bigint NOT NULL DEFAULT 0,
    time text NOT NULL DEFAULT '',
    comment text NOT NULL DEFAULT ''
))";

constexpr const char kPhotoShare[] = R"(CREATE TABLE photo_share (
    shareid bigint PRIMARY KEY,
    sharename text COLLATE "C" NOT NULL UNIQUE,
    title text NOT NULL DEFAULT '',
    description text NOT NULL DEFAULT '',
    public boolean NOT NULL DEFAULT false,
    hits bigint NOT NULL DEFAULT 0,
    cover text NOT NULL DEFAULT '',
    enabled boolean NOT NULL DEFAULT true,
    is_subdir boolean NOT NULL DEFAULT false,
    updated bigint NOT NULL DEFAULT 0
))";

constexpr const char kRightsGo[] = R"(CREATE FUNCTION koli_rights_go() RETURNS trigger LANGUAGE plpgsql
    SET search_path FROM CURRENT AS
    'BEGIN DELETE FROM photo_access_right WHERE shareid = OLD.shareid; RETURN NULL; END')";

constexpr const char kBytes[] = R"(CREATE OR REPLACE FUNCTION koli_bytes(path text) RETURNS bytea
    LANGUAGE plpgsql IMMUTABLE AS $$
DECLARE
    bytes bytea := '';
    c text;
BEGIN
    IF path !~ '[\uF780-\uF7FF]' THEN RETURN convert_to(path, 'UTF8'); END IF;
    FOREACH c IN ARRAY string_to_array(path, NULL) LOOP
        bytes := bytes || CASE WHEN c ~ '[\uF780-\uF7FF]' THEN set_byte('\x00', 0, ascii(c) - 63232)
                               ELSE convert_to(c, 'UTF8') END;
    END LOOP;
    RETURN bytes;
END $$)";

void AddOrder(const std::string& table, Step* step) {
    step->push_back("CREATE INDEX " + table + "_mapped ON " + table + " (path) WHERE " + kIsMapped);
}

/// Makes `column` of a new row one more than the highest.
void AddNumbering(const std::string& table, const std::string& column, Step* step) {
    const std::string function = "koli_next_" + table;
    step->push_back("CREATE FUNCTION " + function +
                    "() RETURNS bigint LANGUAGE plpgsql VOLATILE"
                    " SET search_path FROM CURRENT AS 'BEGIN RETURN (SELECT coalesce(max(" +
                    column + "), 0) + 1 FROM " + table + "); END'");
    step->push_back("ALTER TABLE " + table + " ALTER COLUMN " + column + " SET DEFAULT " + function + "()");
}

constexpr const char kDirectory[] = R"(CREATE TABLE directory (
    path text COLLATE "C" NOT NULL PRIMARY KEY,
    title text NOT NULL DEFAULT ''
))";

constexpr const char kProblem[] = R"(CREATE TABLE problem (
    path text COLLATE "C" NOT NULL PRIMARY KEY,
    time text NOT NULL DEFAULT '',
    reason text NOT NULL DEFAULT '',
    kind integer NOT NULL DEFAULT 0
))";

constexpr const char kVideoDesc[] = R"(CREATE TABLE video_desc (
    path text COLLATE "C" NOT NULL PRIMARY KEY,
    title text NOT NULL DEFAULT '',
    description text NOT NULL DEFAULT ''
))";

constexpr const char kRights[] = R"(CREATE TABLE photo_access_right (
    userid bigint NOT NULL,
    shareid bigint NOT NULL,
    time text NOT NULL DEFAULT ''
))";

constexpr const char kSettingValues[] = R"(CREATE TABLE setting (
    name text COLLATE "C" NOT NULL PRIMARY KEY,
    value text NOT NULL DEFAULT ''
))";

constexpr const char kRightsTrigger[] =
    "CREATE TRIGGER photo_share_rights AFTER DELETE ON photo_share FOR EACH ROW"
    " EXECUTE FUNCTION koli_rights_go()";

Steps MediaSteps() {
    Step first = {kDirectory, kProblem, kBytes};
    for (const char* table : {"music", "video", "photo", "playlist"})
        first.push_back(std::string("CREATE TABLE ") + table + " " + kMediaColumns);
    for (const char* table : {"music", "video", "photo", "playlist", "directory", "problem"})
        AddOrder(table, &first);
    return {first};
}

Steps PhotoSteps() {
    Step first = {kPhotoInfo,     kVideoDesc, kVideoComment,  kPhotoShare, kRights,
                  kSettingValues, kRightsGo,  kRightsTrigger, kBytes};
    first.emplace_back("CREATE INDEX video_comment_path ON video_comment (path)");
    first.emplace_back("CREATE INDEX photo_access_right_shareid ON photo_access_right (shareid)");
    AddOrder("photo_info", &first);
    AddNumbering("photo_share", "shareid", &first);
    AddNumbering("video_comment", "id", &first);
    return {first};
}

const Steps& StepsOf(int database) {
    static const auto* const media = new Steps(MediaSteps());
    static const auto* const photo = new Steps(PhotoSteps());
    return database == KOLI_MEDIA_DB ? *media : *photo;
}

constexpr const char kVersions[] =
    "CREATE TABLE IF NOT EXISTS koli_schema (name text NOT NULL PRIMARY KEY, version integer NOT NULL,"
    " changed timestamptz NOT NULL DEFAULT now())";
constexpr const char kSetVersion[] =
    "INSERT INTO koli_schema VALUES (?1, ?2) ON CONFLICT (name) DO UPDATE SET version = excluded.version";

bool RunSteps(Postgresql& sql, int database, int version) {
    const Steps& steps = StepsOf(database);
    for (size_t at = static_cast<size_t>(version); at < steps.size(); ++at)
        for (const std::string& statement : steps[at])
            if (sql.Execute(statement) < 0) return false;
    SqlStatement* const set = sql.Kept(kSetVersion);
    return sql.Run(set->Fill(DatabaseName(database), ServerSchemaKnown(database))) >= 0;
}

}  // namespace

int ServerSchemaKnown(int database) {
    return static_cast<int>(StepsOf(database).size());
}

int ServerSchemaVersion(Postgresql& sql, int database) {
    if (sql.Columns("koli_schema").empty()) return -1;
    const std::string version =
        sql.Answer("SELECT version FROM koli_schema WHERE name = ?1", {DatabaseName(database)});
    return version.empty() ? -1 : static_cast<int>(strtol(version.c_str(), nullptr, 10));
}

bool ServerSchemaUpgrade(Postgresql& sql, int database) {
    const int version = ServerSchemaVersion(sql, database);
    if (!sql.failure().reason.empty()) return false;
    const int known = ServerSchemaKnown(database);
    if (version > known) return sql.FailAs({.reason = "its tables are of a later version"});
    if (version == known) return true;
    if (!sql.Begin()) return false;
    if (sql.Execute(kVersions) >= 0 && RunSteps(sql, database, std::max(version, 0)))
        return sql.Execute("COMMIT") >= 0;
    const SqlFailure failure = sql.failure();
    sql.Execute("ROLLBACK");
    return sql.FailAs(failure);
}

}  // namespace koli::host
