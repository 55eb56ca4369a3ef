#include "tools/ctl/entry.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "base/media_info.h"
#include "index/record/share_path.h"
#include "platform/host/tables.h"
#include "platform/koliindex.h"

namespace koli::ctl {
namespace {

constexpr size_t kRecordsMax = 1000;                  // of one table and path: comments, covers
constexpr size_t kAlbumNameAt = kShareTopLength + 1;  // behind "/volume1/photo/"
constexpr const char kCoverPrefix[] = "cover";

Section RowsOf(const StoreReader& store, const char* table, const char* key, const std::string& value) {
    const auto rows = store.Find(table, key, value);
    Section section{table};
    while (rows != nullptr && section.records.size() < kRecordsMax && rows->Next())
        section.records.push_back(RecordOf(*rows));
    return section;
}

void AddRows(const StoreReader& store, const char* table, const char* key, const std::string& value,
             std::vector<Section>* sections) {
    Section section = RowsOf(store, table, key, value);
    if (!section.records.empty()) sections->push_back(std::move(section));
}

/// The text of a field, "" without it.
std::string TextOf(const Record& record, const char* name) {
    const auto found =
        std::ranges::find_if(record, [name](const auto& field) { return field.first == name; });
    return found != record.end() ? found->second.text : "";
}

/// The rights of these albums, whose numbers are another's in another library.
void AddRights(const StoreReader& store, const std::vector<Record>& albums, std::vector<Section>* sections) {
    Section rights{"photo_access_right"};
    for (const Record& album : albums)
        for (Record& right : RowsOf(store, "photo_access_right", "shareid", TextOf(album, "shareid")).records)
            if (TextOf(right, "library") == TextOf(album, "library"))
                rights.records.push_back(std::move(right));
    if (!rights.records.empty()) sections->push_back(std::move(rights));
}

void AddAlbum(const StoreReader& store, const std::string& path, std::vector<Section>* sections) {
    if (IsPhotoSharePath(path.c_str()) == 0 || path.size() <= kAlbumNameAt) return;
    Section albums = RowsOf(store, "photo_share", "sharename", path.substr(kAlbumNameAt));
    if (albums.records.empty()) return;
    sections->push_back(albums);
    AddRights(store, albums.records, sections);
}

void AddBelow(const StoreReader& store, const std::string& path, std::vector<Section>* sections) {
    Record counts;
    for (const char* table : {"music", "video", "photo", "playlist", "directory", "photo_info", "problem"})
        if (const int64_t count = store.CountBelow(table, path); count > 0) counts.emplace_back(table, count);
    if (store.HasRowsBelow(path)) sections->push_back({"at_and_below", {counts}, true});
}

void AddCovers(const std::string& path, std::vector<Section>* sections) {
    char folder[kPathSize];
    if (GetCoverFolder(path.c_str(), folder, sizeof folder) == 0) return;
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(folder), closedir);
    Section covers{"covers"};
    while (const dirent* entry = entries != nullptr ? readdir(entries.get()) : nullptr) {
        const std::string file = std::string(folder) + "/" + entry->d_name;
        struct stat status;
        if (strncmp(entry->d_name, kCoverPrefix, sizeof kCoverPrefix - 1) != 0 ||
            lstat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode) ||
            covers.records.size() >= kRecordsMax)
            continue;
        covers.records.push_back({{"file", file}, {"file_size", int64_t{status.st_size}}});
    }
    if (!covers.records.empty()) sections->push_back(std::move(covers));
}

}  // namespace

std::vector<Section> EntryOf(const StoreReader& store, const std::string& path) {
    std::vector<Section> sections;
    for (const char* table : host::kMediaTables)
        AddRows(store, table, "path", path, &sections);
    for (const char* table : {"problem", "photo_info", "video_desc", "video_comment"})
        AddRows(store, table, "path", path, &sections);
    AddAlbum(store, path, &sections);
    AddBelow(store, path, &sections);
    if (store.IsOfMachine()) AddCovers(path, &sections);
    return sections;
}

}  // namespace koli::ctl
