// The media store: the rows of music, video, photo and playlist files, and of folders.
#include <cmath>
#include <string>

#include "base/log.h"
#include "base/path_names.h"
#include "platform/host/database_groups.h"
#include "platform/host/guard.h"
#include "platform/host/media_rebuild.h"
#include "platform/host/path_range.h"
#include "platform/host/problems.h"
#include "platform/host/schema.h"
#include "platform/host/text_utf8.h"
#include "platform/kolidb.h"

namespace koli::host {
namespace {

constexpr const char kModule[] = "kolidb";

constexpr const char kSaveDirectory[] =
    "INSERT INTO directory (path, title) VALUES (?1, ?2) ON CONFLICT (path) DO UPDATE SET title = "
    "excluded.title "
    "WHERE directory.title IS DISTINCT FROM excluded.title";

/// The texts of the statements, each built once.
struct MediaStatements {
    MediaStatements() {
        for (size_t i = 0; i < kMediaStoreTables; ++i) {
            save[i] = MediaSaveSql(kMediaTables[i]);
            remove[i] = "DELETE FROM " + std::string(kMediaTables[i]) + " WHERE path = ?1";
        }
        for (size_t i = 0; i < std::size(kMediaTables); ++i)
            remove_below[i] = "DELETE FROM " + std::string(kMediaTables[i]) + " WHERE " + kPathRange;
    }
    std::string save[kMediaStoreTables];
    std::string remove[kMediaStoreTables];
    std::string remove_below[std::size(kMediaTables)];
};

const MediaStatements& Statements() {
    static const auto* const statements = new MediaStatements;
    return *statements;
}

bool IsStoreTable(int type) {
    return type >= kStoreMusic && type < kMediaStoreTables;
}

/// Fills a statement's parameters one after the other.
class RecordBinder {
  public:
    explicit RecordBinder(SqlStatement& statement) : statement_(statement) {}

    void Bytes(std::string_view value) { statement_.Text(++index_, value); }
    void Number(int64_t value) { statement_.Integer(++index_, value); }
    void Real(float value) { statement_.Real(++index_, std::isfinite(value) ? value : 0.0); }

    template <size_t N>
    void Unmarked(const char (&field)[N]) {
        Bytes(Utf8FromUnmarked(FieldText(field), &scratch_));
    }
    template <size_t N>
    void Marked(const char (&field)[N], int utf16) {
        const Utf16Text text(utf16 == 1 ? std::string_view(field, N) : std::string_view());
        if (text.marked)
            Bytes(Utf8FromUtf16(text));
        else
            Unmarked(field);
    }

  private:
    SqlStatement& statement_;
    int index_ = 0;
    std::string scratch_;
};

/// In the order of the columns.
void BindMediaInfo(SqlStatement& statement, const MediaInfo& record) {
    RecordBinder binder(statement);
    binder.Bytes(FieldText(record.path));
    binder.Marked(record.title, record.title_utf16);
    binder.Marked(record.album, record.album_utf16);
    binder.Marked(record.artist, record.artist_utf16);
    binder.Marked(record.genre, record.genre_utf16);
    binder.Marked(record.composer, record.composer_utf16);
    binder.Marked(record.comment, record.comment_utf16);
    binder.Number(record.track);
    binder.Number(record.disc);
    binder.Number(record.year);
    binder.Real(record.duration);
    binder.Number(record.audio_bitrate);
    binder.Number(record.video_bitrate);
    binder.Number(record.sample_rate);
    binder.Number(record.channels);
    binder.Number(record.width);
    binder.Number(record.height);
    binder.Number(static_cast<int64_t>(record.file_size));
    binder.Number(record.has_cover);
    binder.Unmarked(record.camera_make);
    binder.Unmarked(record.camera_model);
    binder.Unmarked(record.exposure_time);
    binder.Unmarked(record.f_number);
    binder.Unmarked(record.date_taken);
    binder.Number(record.iso_speed);
    binder.Unmarked(record.ctime);
    binder.Unmarked(record.mtime);
}

/// Every table is tried, whatever becomes of another.
int DeleteBelow(const char* path) {
    int result = 0;
    for (const std::string& text : Statements().remove_below) {
        SqlStatement* statement = MediaDatabase().Prepare(text.c_str());
        if (statement == nullptr) return -1;
        BindPathRange(*statement, path);
        if (MediaDatabase().Run(*statement) < 0) result = -1;
    }
    if (result == 0) ProblemForgetBelow(path);
    return result;
}

}  // namespace
}  // namespace koli::host

using namespace koli;
using namespace koli::host;

extern "C" {

int MediaInfoDBSave(int type, const MediaInfo* record) {
    return Guarded(MediaDatabase(), [&] {
        if (!IsStoreTable(type) || record == nullptr || record->path[0] == '\0') {
            KOLI_LOG("%s (%d) Bad parameter.");
            return -1;
        }
        ProblemSettle();
        RebuildNote(type, record->path);
        SqlStatement* statement = MediaDatabase().Prepare(Statements().save[type].c_str());
        if (statement == nullptr) return -1;
        BindMediaInfo(*statement, *record);
        if (MediaDatabase().Run(*statement) < 0) return -1;
        ProblemSaved(record->path);
        return 0;
    });
}

int MediaInfoDBDirSave(const char* path) {
    return Guarded(MediaDatabase(), [&] {
        if (path == nullptr || *path == '\0') {
            KOLI_LOG("%s (%d) Bad parameter.");
            return -1;
        }
        ProblemSettle();
        std::string directory(WithoutTrailingSlashes(path));
        if (directory.empty()) directory = "/";
        RebuildNote(kRebuildDirectory, directory);
        SqlStatement* statement = MediaDatabase().Prepare(kSaveDirectory);
        if (statement == nullptr) return -1;
        std::string scratch;
        statement->Text(1, directory);
        statement->Text(2, Utf8FromUnmarked(FileNameOf(directory.c_str()), &scratch));
        return MediaDatabase().Run(*statement) < 0 ? -1 : 0;
    });
}

int MediaInfoDBDelete(int type, const char* path) {
    return Guarded(MediaDatabase(), [&] {
        if (path == nullptr || *path == '\0' || (!IsStoreTable(type) && type != kStoreBelowDirectory)) {
            KOLI_LOG("%s (%d) Bad parameter.");
            return -1;
        }
        ProblemSettle();
        if (type == kStoreBelowDirectory) return DeleteBelow(path);
        SqlStatement* statement = MediaDatabase().Prepare(Statements().remove[type].c_str());
        if (statement == nullptr) return -1;
        statement->Text(1, path);
        if (MediaDatabase().Run(*statement) < 0) return -1;
        ProblemForget(path);
        return 0;
    });
}

}  // extern "C"
