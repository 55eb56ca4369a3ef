#include "tools/ctl/entry.h"

#include <dirent.h>
#include <sys/stat.h>

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

void AddRows(const StoreReader& store, const char* table, const char* key, const std::string& value,
             std::vector<Section>* sections) {
    const auto rows = store.Find(table, key, value);
    Section section{table};
    while (rows != nullptr && section.records.size() < kRecordsMax && rows->Next())
        section.records.push_back(RecordOf(*rows));
    if (!section.records.empty()) sections->push_back(std::move(section));
}

void AddAlbum(const StoreReader& store, const std::string& path, std::vector<Section>* sections) {
    if (IsPhotoSharePath(path.c_str()) == 0 || path.size() <= kAlbumNameAt) return;
    const size_t before = sections->size();
    AddRows(store, "photo_share", "sharename", path.substr(kAlbumNameAt), sections);
    if (sections->size() == before) return;
    for (const auto& [name, field] : sections->back().records.front())
        if (name == "shareid") {
            const std::string id = field.text;
            return AddRows(store, "photo_access_right", "shareid", id, sections);
        }
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
    AddCovers(path, &sections);
    return sections;
}

}  // namespace koli::ctl
