// The media store: the rows of music, video, photo and playlist files, and of folders.
#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "base/log.h"
#include "base/media_fields.h"
#include "base/path_names.h"
#include "platform/host/database_groups.h"
#include "platform/host/guard.h"
#include "platform/host/media_rebuild.h"
#include "platform/host/path_range.h"
#include "platform/host/problems.h"
#include "platform/host/tables.h"
#include "platform/host/text_utf8.h"
#include "platform/kolidb.h"

namespace koli::host {
namespace {

constexpr const char kModule[] = "kolidb";

const SaveForm& FormOf(int type) {
    static auto* const forms = new std::array<SaveForm, kMediaStoreTables>;
    SaveForm& form = (*forms)[static_cast<size_t>(type)];
    if (!form.table.empty()) return form;
    form.columns.clear();
    EachMediaField([&form](const auto& field) { form.columns.push_back(field.column); });
    form.table = kMediaTables[type];
    return form;
}

const SaveForm& DirectoryForm() {
    static const auto* const form = new SaveForm{kDirectoryTable, {"path", "title"}};
    return *form;
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
            Bytes(FieldUtf8(text, &scratch_));
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
    for (const char* table : kMediaTables)
        if (MediaDatabase().RemoveBelow(table, path) < 0) result = -1;
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
            KOLI_LOG("Bad parameter.");
            return -1;
        }
        RebuildNote(type, record->path);
        SqlStatement* statement = MediaDatabase().PrepareSave(FormOf(type));
        if (statement == nullptr) return -1;
        EachMediaField(RecordBinder(*statement, *record));
        return MediaDatabase().RunAdd(*statement) < 0 ? -1 : 0;
    });
}

int MediaInfoDBDirSave(const char* path) {
    return Guarded(MediaDatabase(), [&] {
        if (path == nullptr || *path == '\0') {
            KOLI_LOG("Bad parameter.");
            return -1;
        }
        const std::string_view bare = WithoutTrailingSlashes(path);
        const std::string directory(bare.empty() ? "/" : bare);
        RebuildNote(kRebuildDirectory, directory);
        std::string scratch;
        const std::string_view title = Utf8FromUnmarked(FileNameOf(directory.c_str()), &scratch);
        return MediaDatabase().Add(DirectoryForm(), directory, title) < 0 ? -1 : 0;
    });
}

int MediaInfoDBDelete(int type, const char* path) {
    return Guarded(MediaDatabase(), [&] {
        if (path == nullptr || *path == '\0' || (!IsStoreTable(type) && type != kStoreBelowDirectory)) {
            KOLI_LOG("Bad parameter.");
            return -1;
        }
        if (type == kStoreBelowDirectory) return DeleteBelow(path);
        const std::string text = std::string("DELETE FROM ") + kMediaTables[type] + " WHERE path = ?1";
        if (MediaDatabase().ChangeLater(text, path) < 0) return -1;
        ProblemForget(path);
        return 0;
    });
}

}  // extern "C"
