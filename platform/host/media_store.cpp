// The media store: the rows of music, video, photo and playlist files, and of folders.
#include <cmath>
#include <string>

#include "base/log.h"
#include "base/media_fields.h"
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
    RecordBinder(SqlStatement& statement, const MediaInfo& record) : statement_(statement), record_(record) {}

    template <size_t N>
    void operator()(const MediaField<char[N]>& field) {
        const char(&text)[N] = record_.*field.member;
        if ((field.rules & kFieldIsBytes) != 0) return Bytes(FieldText(text));
        const bool is_utf16 = field.utf16 != nullptr && record_.*field.utf16 == 1;
        const Utf16Text utf16(is_utf16 ? std::string_view(text, N) : std::string_view());
        if (utf16.marked)
            Bytes(Utf8FromUtf16(utf16));
        else
            Bytes(Utf8FromUnmarked(FieldText(text), &scratch_));
    }
    void operator()(const MediaField<BeFloat>& field) {
        const float value = record_.*field.member;
        statement_.Real(++index_, std::isfinite(value) ? value : 0.0);
    }
    template <typename Number>
    void operator()(const MediaField<Number>& field) {
        statement_.Integer(++index_, static_cast<int64_t>(record_.*field.member));
    }

  private:
    void Bytes(std::string_view value) { statement_.Text(++index_, value); }

    SqlStatement& statement_;
    const MediaInfo& record_;
    int index_ = 0;
    std::string scratch_;
};

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
        RebuildNote(type, record->path);
        SqlStatement* statement = MediaDatabase().Prepare(Statements().save[type].c_str());
        if (statement == nullptr) return -1;
        EachMediaField(RecordBinder(*statement, *record));
        return MediaDatabase().Run(*statement) < 0 ? -1 : 0;
    });
}

int MediaInfoDBDirSave(const char* path) {
    return Guarded(MediaDatabase(), [&] {
        if (path == nullptr || *path == '\0') {
            KOLI_LOG("%s (%d) Bad parameter.");
            return -1;
        }
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
