// The host platform's databases on real files in a temporary directory, or on the server that
// KOLI_TEST_DATABASE names, with the machine's settings and the system log in the test's hands
// (fake_machine.cpp).
#pragma once

#include <gtest/gtest.h>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "platform/host/database_groups.h"
#include "platform/host/engine_choice.h"
#include "platform/host/sqlite/connection.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "tests/fake_platform.h"
#include "tests/host_place.h"

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
        fake = {};
        MakeLibrary();
    }
    ~Store() override { DatabaseDirectorySet(nullptr); }

    static Texts Media(const std::string& query) { return Values(MediaDatabase(), query); }
    static Texts Photo(const std::string& query) { return Values(PhotoDatabase(), query); }
    /// What another program finds in a database, in the first field of the first row; "" without one.
    std::string OutsideText(int database, const char* query) const {
        SqlFailure failure;
        const auto sql = EngineIn(directory_, &failure)->OpenToRead(database, &failure);
        const auto rows = sql != nullptr ? sql->Prepare(query) : nullptr;
        return rows != nullptr && rows->Next() ? std::string(rows->Field(0)) : "";
    }
    int64_t OutsideNumber(const char* query) const {
        return strtoll(OutsideText(KOLI_MEDIA_DB, query).c_str(), nullptr, 10);
    }

    const char* const server_ = getenv("KOLI_TEST_DATABASE");
    const std::string directory_ = PlaceOr(Path("made/for/us"));
};

/// What is about files, and not about what every engine does.
struct FileStore : Store {
    void SetUp() override {
        if (server_ != nullptr) GTEST_SKIP() << "a server has no files of databases";
    }
    /// A database as another program opens it.
    std::unique_ptr<Sqlite> Outside(const char* file) const {
        SqlFailure failure;
        return Sqlite::Open(directory_ + "/" + file, nullptr, &failure);
    }
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
