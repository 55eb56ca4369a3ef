#include "tools/ctl/store_reader.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/host/database_directory.h"
#include "platform/host/schema.h"
#include "tools/ctl/membership.h"

namespace koli::ctl {

std::string DatabasesFolder(const Places& places, std::string* error) {
    if (!places.databases.empty()) return places.databases;
    std::string directory = host::DatabaseDirectory();
    if (directory.empty())
        *error = errno == EINVAL ? "the settings name an unknown database engine"
                                 : std::string("cannot read the settings: ") + strerror(errno);
    return directory;
}

std::string FirstKeyBelow(std::string_view folder) {
    return std::string(folder).append(folder == "/" ? "" : "/");
}

std::string KeyBehind(std::string_view folder) {
    std::string key = FirstKeyBelow(folder);
    ++key.back();
    return key;
}

std::unique_ptr<host::SqlReader> StoreReader::OpenOne(const char* name, const char* table) {
    const std::string file = directory_ + "/" + name;
    struct stat status;
    if (stat(file.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR)) return nullptr;
    std::string reason;
    auto reader = host::SqlReader::Open(file, &reason);
    if (reader != nullptr && !reader->failed() && !reader->HasTable(table)) return nullptr;
    if (reader != nullptr) return reader;
    const bool is_refused = access(file.c_str(), R_OK) != 0 && errno == EACCES;
    if (is_refused) reason = strerror(EACCES) + JoinHint(directory_);
    error_ = "cannot read " + file + ": " + reason;
    return reader;
}

bool StoreReader::Open(const Places& places) {
    directory_ = DatabasesFolder(places, &error_);
    if (directory_.empty()) return false;
    media_ = OpenOne("media.db", "directory");
    if (error_.empty()) photo_ = OpenOne("photo.db", "photo_info");
    return error_.empty();
}

host::SqlReader* StoreReader::ReaderOf(const char* table) const {
    for (host::SqlReader* reader : {media_.get(), photo_.get()})
        if (reader != nullptr && reader->HasTable(table)) return reader;
    return nullptr;
}

bool StoreReader::KnowsProblemKinds() const {
    if (media_ == nullptr) return false;
    const auto found = media_->Query("SELECT 1 FROM pragma_table_info('problem') WHERE name = 'kind'");
    return found != nullptr && found->Next();
}

int64_t StoreReader::CountBelow(const char* table, const std::string& path) const {
    host::SqlReader* reader = ReaderOf(table);
    if (reader == nullptr) return 0;
    std::string text = std::string("SELECT count(*) FROM ") + table;
    if (!path.empty()) text += " WHERE path = ?1 OR (path >= ?2 AND path < ?3)";
    const auto rows = reader->Query(text);
    if (rows == nullptr) return 0;
    if (!path.empty()) {
        rows->Text(1, path);
        rows->Text(2, FirstKeyBelow(path));
        rows->Text(3, KeyBehind(path));
    }
    return rows->Next() ? rows->Number(0) : 0;
}

int64_t StoreReader::FilesBelow(const std::string& path) const {
    int64_t files = 0;
    for (int i = 0; i < host::kMediaStoreTables; ++i)
        files += CountBelow(host::kMediaTables[i], path);
    return files;
}

bool StoreReader::HasRowsBelow(const std::string& path) const {
    for (const char* table : {"directory", "music", "video", "photo", "playlist", "photo_info"}) {
        host::SqlReader* reader = ReaderOf(table);
        if (reader == nullptr) continue;
        const auto rows =
            reader->Query(std::string("SELECT 1 FROM ") + table + " WHERE path >= ?1 AND path < ?2 LIMIT 1");
        if (rows == nullptr) return false;
        rows->Text(1, FirstKeyBelow(path));
        rows->Text(2, KeyBehind(path));
        if (rows->Next()) return true;
    }
    return false;
}

bool StoreReader::IsRecordedFolder(const std::string& path) const {
    if (media_ == nullptr) return false;
    const auto rows = media_->Query("SELECT 1 FROM directory WHERE path = ?1");
    if (rows == nullptr) return false;
    rows->Text(1, path);
    return rows->Next();
}

std::unordered_set<std::string> StoreReader::AlbumNames() const {
    std::unordered_set<std::string> names;
    host::SqlReader* reader = ReaderOf("photo_share");
    const auto rows = reader != nullptr ? reader->Query("SELECT sharename FROM photo_share") : nullptr;
    while (rows != nullptr && rows->Next())
        names.emplace(rows->Field(0));
    return names;
}

std::string StoreReader::error() const {
    if (!error_.empty()) return error_;
    for (const host::SqlReader* reader : {media_.get(), photo_.get()})
        if (reader != nullptr && reader->failed())
            return "cannot read " + directory_ + (reader == media_.get() ? "/media.db: " : "/photo.db: ") +
                   reader->error();
    return "";
}

bool OpenStore(const Context& context, StoreReader* store) {
    if (store->Open(context.places)) return true;
    Complain("%s", store->error().c_str());
    return false;
}

int StoreResult(const StoreReader& store, int code) {
    const std::string error = store.error();
    if (error.empty()) return code;
    Complain("%s", error.c_str());
    return kExitDatabase;
}

}  // namespace koli::ctl
