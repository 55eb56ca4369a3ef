// The photo database: the photo library's rows, and statements of the callers on its tables.
#include <cstring>
#include <string>

#include "base/log.h"
#include "base/path_names.h"
#include "platform/host/database_groups.h"
#include "platform/host/guard.h"
#include "platform/host/tables.h"
#include "platform/host/text_utf8.h"
#include "platform/kolidb.h"

namespace koli::host {
namespace {

constexpr const char kModule[] = "kolidb";

// A caption is handed over once, so a record without one (parameter 17 for the title, an empty description)
// leaves the row's alone.
constexpr const char kTitle[] = "CASE WHEN ?17 = 1 THEN photo_info.title ELSE excluded.title END";
constexpr const char kDescription[] =
    "CASE WHEN excluded.description = '' THEN photo_info.description ELSE excluded.description END";

/// `status` is not the record's.
const SaveForm& PhotoForm() {
    static const auto* const form =
        new SaveForm{"photo_info",
                     {"path", "name", "folder", "camera_make", "camera_model", "exposure_time", "f_number",
                      "date_taken", "ctime", "width", "height", "iso_speed", "file_size", "updated"},
                     {{"title", kTitle}, {"description", kDescription}}};
    return *form;
}

constexpr const char kVideoStatus[] =
    "UPDATE photo_info SET status = 1, updated = 1 WHERE path = ?1 AND (status <> 1 OR updated <> 1)";
constexpr const char kClearMarks[] = "UPDATE photo_info SET updated = 0 WHERE updated <> 0";
constexpr const char kSweep[] = "DELETE FROM photo_info WHERE updated = 0";

bool HasOwnTitle(const PhotoRecord& record) {
    char plain[sizeof record.title];
    TitleFromPath(record.path, plain, sizeof plain);
    return FieldText(record.title) != plain;
}

/// A field as it is stored.
class StoredText {
  public:
    template <size_t N>
    explicit StoredText(const char (&field)[N]) : text_(FieldUtf8(field, &scratch_)) {}
    operator std::string_view() const { return text_; }

  private:
    std::string scratch_;
    std::string_view text_;
};

void FillPhoto(SqlStatement& statement, const PhotoRecord& record) {
    constexpr int kUpdated = 1;
    statement.Fill(FieldText(record.path), FieldText(record.name), FieldText(record.folder),
                   StoredText(record.camera_make), StoredText(record.camera_model),
                   StoredText(record.exposure_time), StoredText(record.f_number),
                   StoredText(record.date_taken), StoredText(record.ctime), record.width, record.height,
                   record.iso_speed, record.file_size, kUpdated, StoredText(record.title),
                   StoredText(record.description), HasOwnTitle(record) ? 0 : 1);
}

template <typename... Values>
int Change(const char* text, Values... values) {
    return Guarded(PhotoDatabase(), [&] { return PhotoDatabase().Change(text, values...) < 0 ? -1 : 0; });
}

bool IsPath(const char* path, LogSite site = LogSite(kModule)) {
    if (path != nullptr && *path != '\0') return true;
    LogError(site, "Bad parameter.");
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
            KOLI_LOG("Bad parameter.");
            return -1;
        }
        SqlStatement* statement = PhotoDatabase().PrepareSave(PhotoForm());
        if (statement == nullptr) return -1;
        FillPhoto(*statement, *record);
        // What may come from a caption: its file goes when the row is there.
        const bool has_texts = HasOwnTitle(*record) || record->description[0] != '\0';
        const int saved =
            has_texts ? PhotoDatabase().RunAddNow(*statement) : PhotoDatabase().RunAdd(*statement);
        return saved < 0 ? -1 : 0;
    });
}

int PhotoInfoDBDelete(const char* path) {
    return Guarded(PhotoDatabase(),
                   [&] { return IsPath(path) && PhotoDatabase().Remove("photo_info", path) >= 0 ? 0 : -1; });
}

int PhotoInfoDBDirDelete(const char* path) {
    return Guarded(PhotoDatabase(), [&] {
        return IsPath(path) && PhotoDatabase().RemoveBelow("photo_info", path) >= 0 ? 0 : -1;
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
        SqlStatement* const statement = PhotoDatabase().PrepareSave(SettingForm());
        return statement != nullptr && PhotoDatabase().Run(statement->Fill(name, value)) >= 0 ? 0 : -1;
    });
}

}  // extern "C"
