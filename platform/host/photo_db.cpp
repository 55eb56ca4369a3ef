// The photo database: the photo library's rows, and statements of the callers on its tables.
#include <cstring>
#include <string>

#include "base/log.h"
#include "base/path_names.h"
#include "platform/host/database_groups.h"
#include "platform/host/guard.h"
#include "platform/host/path_range.h"
#include "platform/host/tables.h"
#include "platform/host/text_utf8.h"
#include "platform/kolidb.h"

namespace koli::host {
namespace {

constexpr const char kModule[] = "kolidb";

// A caption is handed over once, so a record without one (parameter 16 for the title, an empty description)
// leaves the row's alone.  `status` is not the record's.
constexpr const char kSave[] =
    "INSERT INTO photo_info (path, name, title, description, folder, camera_make, camera_model, "
    "exposure_time,"
    " f_number, date_taken, ctime, width, height, iso_speed, file_size, updated)"
    " VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15, 1)"
    " ON CONFLICT (path) DO UPDATE SET name = excluded.name,"
    " title = CASE WHEN ?16 = 1 THEN photo_info.title ELSE excluded.title END,"
    " description = CASE WHEN excluded.description = '' THEN photo_info.description ELSE "
    "excluded.description END,"
    " folder = excluded.folder, camera_make = excluded.camera_make, camera_model = excluded.camera_model,"
    " exposure_time = excluded.exposure_time, f_number = excluded.f_number, date_taken = excluded.date_taken,"
    " ctime = excluded.ctime, width = excluded.width, height = excluded.height, iso_speed = "
    "excluded.iso_speed,"
    " file_size = excluded.file_size, updated = 1"
    " WHERE (?16 = 0 AND photo_info.title <> excluded.title)"
    " OR (excluded.description <> '' AND photo_info.description <> excluded.description)"
    " OR (photo_info.name, photo_info.folder, photo_info.camera_make, photo_info.camera_model,"
    " photo_info.exposure_time, photo_info.f_number, photo_info.date_taken, photo_info.ctime, "
    "photo_info.width,"
    " photo_info.height, photo_info.iso_speed, photo_info.file_size, photo_info.updated) IS DISTINCT FROM"
    " (excluded.name, excluded.folder, excluded.camera_make, excluded.camera_model, excluded.exposure_time,"
    " excluded.f_number, excluded.date_taken, excluded.ctime, excluded.width, excluded.height,"
    " excluded.iso_speed, excluded.file_size, 1)";

constexpr const char kDelete[] = "DELETE FROM photo_info WHERE path = ?1";
constexpr const char kVideoStatus[] =
    "UPDATE photo_info SET status = 1, updated = 1 WHERE path = ?1 AND (status <> 1 OR updated <> 1)";
constexpr const char kClearMarks[] = "UPDATE photo_info SET updated = 0 WHERE updated <> 0";
constexpr const char kSweep[] = "DELETE FROM photo_info WHERE updated = 0";

bool HasOwnTitle(const PhotoRecord& record) {
    char plain[sizeof record.title];
    TitleFromPath(record.path, plain, sizeof plain);
    return FieldText(record.title) != plain;
}

template <size_t N>
void BindText(SqlStatement& statement, int index, const char (&field)[N]) {
    std::string scratch;
    statement.Text(index, Utf8FromUnmarked(FieldText(field), &scratch));
}

void BindPhoto(SqlStatement& statement, const PhotoRecord& record) {
    statement.Text(1, FieldText(record.path));
    statement.Text(2, FieldText(record.name));
    BindText(statement, 3, record.title);
    BindText(statement, 4, record.description);
    statement.Text(5, FieldText(record.folder));
    BindText(statement, 6, record.camera_make);
    BindText(statement, 7, record.camera_model);
    BindText(statement, 8, record.exposure_time);
    BindText(statement, 9, record.f_number);
    BindText(statement, 10, record.date_taken);
    BindText(statement, 11, record.ctime);
    statement.Integer(12, record.width);
    statement.Integer(13, record.height);
    statement.Integer(14, record.iso_speed);
    statement.Integer(15, record.file_size);
    statement.Integer(16, HasOwnTitle(record) ? 0 : 1);
}

template <typename... Values>
int Change(const char* text, Values... values) {
    return Guarded(PhotoDatabase(), [&] { return PhotoDatabase().Change(text, values...) < 0 ? -1 : 0; });
}

bool IsPath(const char* path, LogSite site = LogSite(kModule)) {
    if (path != nullptr && *path != '\0') return true;
    LogError("%s (%d) Bad parameter.", site.module, site.line);
    return false;
}

}  // namespace
}  // namespace koli::host

using namespace koli;
using namespace koli::host;

extern "C" {

int PhotoInfoDBSave(const PhotoRecord* record, int mode) {
    return Guarded(PhotoDatabase(), [&] {
        if (record == nullptr || record->path[0] == '\0' || (mode != 1 && mode != 5)) {
            KOLI_LOG("%s (%d) Bad parameter.");
            return -1;
        }
        SqlStatement* statement = PhotoDatabase().Prepare(kSave);
        if (statement == nullptr) return -1;
        BindPhoto(*statement, *record);
        return PhotoDatabase().RunAdd(*statement) < 0 ? -1 : 0;
    });
}

int PhotoInfoDBDelete(const char* path) {
    return IsPath(path) ? Change(kDelete, path) : -1;
}

int PhotoInfoDBDirDelete(const char* path) {
    return Guarded(PhotoDatabase(), [&] {
        if (!IsPath(path)) return -1;
        SqlStatement* statement =
            PhotoDatabase().Prepare(std::string("DELETE FROM photo_info WHERE ") + kPathRange);
        return statement != nullptr && PhotoDatabase().Run(FillPathRange(*statement, path)) >= 0 ? 0 : -1;
    });
}

int KOLIIndexPhotoUpdateVideoStatus(const char* path) {
    return IsPath(path) ? Change(kVideoStatus, path) : -1;
}

int KOLIPhotoInitAllRows(void) {
    return Change(kClearMarks);
}

int KOLIPhotoDeleteNoUpdateRows(void) {
    return Change(kSweep);
}

int PhotoDBExec(const char* sql) {
    return Guarded(PhotoDatabase(), [&] { return IsPath(sql) ? PhotoDatabase().Execute(sql) : -1; });
}

int PhotoDBSettingGet(const char* name, char* value, int size) {
    return Guarded(PhotoDatabase(), [&] {
        if (!IsPath(name) || value == nullptr || size <= 0) return -1;
        const auto rows = PhotoDatabase().Ask("SELECT value FROM setting WHERE name = ?1", name);
        if (rows == nullptr) return -1;
        if (rows->count() == 0) return 1;
        CopyText(value, static_cast<size_t>(size), rows->Field(0, "value"));
        return 0;
    });
}

int PhotoDBSettingSet(const char* name, const char* value) {
    return Guarded(PhotoDatabase(), [&] {
        return PhotoDatabase().Change(SaveText("setting", {"name", "value"}), name, value) < 0 ? -1 : 0;
    });
}

}  // extern "C"
