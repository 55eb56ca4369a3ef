// The host platform's databases on real files in a temporary directory, with the machine's settings and the
// system log in the test's hands.  For one source file of a test program.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "base/log.h"
#include "platform/host/database_groups.h"
#include "platform/host/sqlite/connection.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"
#include "tests/host_temp_dir.h"

namespace koli::test {
inline int log_lines = 0;
inline std::string last_log;              // the line's number replaced by #
inline const char* engine_key = nullptr;  // what the machine's settings say
inline const char* public_key = nullptr;  // the same of new albums
inline int settings_error = 0;            // why the settings cannot be read (an errno)
}  // namespace koli::test

void koli::LogError(LogSite site, const char* format, ...) {
    constexpr const char* kForms[] = {"%s (#) ", "%s:# ", "%s(#) ", "%s(#): ", "(%s, #) ", ""};
    char line[9000];
    const int begun = snprintf(line, sizeof line, kForms[static_cast<int>(site.form)], site.module);
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line + begun, sizeof line - static_cast<size_t>(begun), format, arguments);
    va_end(arguments);
    ++test::log_lines;
    test::last_log = line;
}

extern "C" int KLIBFileGetKeyValue(const char*, const char* key, char* buffer, int size, int) {
    const bool is_engine = strcmp(key, "database") == 0;
    const char* value = is_engine ? koli::test::engine_key : koli::test::public_key;
    errno = koli::test::settings_error;
    if (value == nullptr) return -1;
    return snprintf(buffer, static_cast<size_t>(size), "%s", value);
}

namespace koli::host {

using Texts = std::vector<std::string>;
using namespace test;

/// The values of column v.
inline Texts Values(Database& database, const std::string& query) {
    Texts values;
    const auto rows = database.Query(query);
    for (int row = 0; rows != nullptr && row < rows->count(); ++row)
        values.emplace_back(rows->Field(row, "v"));
    return values;
}

struct Store : testing::Test, TempDir {
    Store() {
        DatabaseDirectorySet(directory_.c_str());
        KOLIIndexMusicTableDirtySet(0);
        KOLIIndexVideoTableDirtySet(0);
        log_lines = 0;
    }
    ~Store() override { DatabaseDirectorySet(nullptr); }

    static Texts Media(const std::string& query) { return Values(MediaDatabase(), query); }
    static Texts Photo(const std::string& query) { return Values(PhotoDatabase(), query); }
    /// A database as another program opens it, and what that finds in the media store's.
    std::unique_ptr<Sqlite> Outside(const char* file) const {
        SqlFailure failure;
        return Sqlite::Open(directory_ + "/" + file, nullptr, &failure);
    }
    int64_t OutsideNumber(const char* query) const { return Outside("media.db")->QueryNumber(query); }

    const std::string directory_ = Path("made/for/us");
};

/// The photos of a condition, in the platform's list.
using PhotoList = std::unique_ptr<PhotoPathList, decltype(&FreePhotoPathList)>;
inline PhotoList PhotosOf(const std::string& where) {
    KOLIDBRows* rows = PhotoInfoDBOpen(KOLI_PHOTO_INFO, "path", where.c_str(), 0, "path asc", 0, 0);
    PhotoList list(PhotoPathDBGet(rows), FreePhotoPathList);
    PhotoInfoDBClose(rows);
    return list;
}
inline Texts PhotosWhere(const std::string& where) {
    Texts paths;
    const PhotoList list = PhotosOf(where);
    for (const PhotoPathList* node = list.get(); node != nullptr; node = node->next)
        paths.emplace_back(node->path);
    return paths;
}

inline MediaInfo MediaRecord(const std::string& path, const std::string& title = "title") {
    MediaInfo record{};
    memcpy(record.path, path.data(), path.size());
    memcpy(record.title, title.data(), title.size());
    return record;
}
inline int Save(const std::string& path, int type = kStoreMusic) {
    const MediaInfo record = MediaRecord(path);
    return MediaInfoDBSave(type, &record);
}
inline void SavePhoto(const std::string& path, const std::string& title,
                      const std::string& description = "") {
    PhotoRecord record{};
    memcpy(record.path, path.data(), path.size());
    memcpy(record.title, title.data(), title.size());
    memcpy(record.description, description.data(), description.size());
    ASSERT_EQ(PhotoInfoDBSave(&record, 5), 0);
}

}  // namespace koli::host
