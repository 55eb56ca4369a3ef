#include "tests/fake_platform.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "base/log.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"

namespace koli {

namespace test {

FakePlatform fake;

Sandbox::Sandbox() {
    fake = FakePlatform{};
    char name[] = "/tmp/koli-test-XXXXXX";
    dir_ = mkdtemp(name);
}

Sandbox::~Sandbox() {
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
}

std::string Sandbox::Write(const std::string& name, const std::string& bytes) const {
    const std::filesystem::path path = std::filesystem::path(dir_) / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
    return path.string();
}

std::string Sandbox::MakeDir(const std::string& name) const {
    const std::filesystem::path path = std::filesystem::path(dir_) / name;
    std::filesystem::create_directories(path);
    return path.string();
}

std::string ReadFile(const std::string& path) {
    std::stringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
}

/// "music (12) Text 3" becomes "music (#) Text 3"; also for "m:12 ", "m(12): ", "(m, 12) " and "m:
/// Function(12) - ".
static std::string WithoutLineNumber(const std::string& line) {
    const auto skip = [&line](size_t at, const char* set) { return line.find_first_not_of(set, at); };
    static const char kWord[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_";
    size_t at = skip(skip(0, "("), kWord);
    if (at != std::string::npos && line.compare(at, 2, ": ") == 0) at = skip(at + 2, kWord);
    if (at == std::string::npos) return line;
    at = skip(at, " (:,");
    if (at == std::string::npos || isdigit(static_cast<unsigned char>(line[at])) == 0) return line;
    const size_t end = line.find_first_not_of("0123456789", at);
    return line.substr(0, at) + "#" + (end == std::string::npos ? "" : line.substr(end));
}

}  // namespace test

void LogError(const char* format, ...) {
    char line[9000];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    if (log_sink != nullptr)
        log_sink(line);
    else
        test::fake.log.push_back(test::WithoutLineNumber(line));
}

void LogNotice(const char* format, ...) {
    char line[1000];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    test::fake.log.push_back("notice: " + test::WithoutLineNumber(line));
}

}  // namespace koli

using koli::test::fake;

namespace {

bool Fails(const char* operation) {
    return fake.failing.count(operation) != 0;
}

template <typename... Words>
int Record(const char* operation, const Words&... words) {
    std::ostringstream call;
    call << operation;
    ((call << ' ' << words), ...);
    fake.calls.push_back(call.str());
    return Fails(operation) ? -1 : 0;
}

const char* Text(const char* text) {
    return text != nullptr ? text : "(null)";
}

KOLIDBRows* OpenRows(const char* operation, const std::string& key);

}  // namespace

struct KOLIDB {};
struct KOLIDBResult {
    std::vector<std::map<std::string, std::string>> rows;
};

namespace {
KOLIDB the_db;

KOLIDBRows* OpenRows(const char* operation, const std::string& key) {
    if (Record(operation, key) != 0) return nullptr;
    auto* result =
        new KOLIDBResult{fake.rows.count(key) != 0 ? fake.rows[key] : decltype(KOLIDBResult::rows){}};
    return new KOLIDBRows{&the_db, result, -1, static_cast<int>(result->rows.size())};
}
}  // namespace

extern "C" {

// ---- kolidb
int MediaInfoDBSave(int type, const koli::MediaInfo* record) {
    fake.media.emplace_back(type, *record);
    return Record("MediaInfoDBSave", type, record->path);
}
int MediaInfoValid(koli::MediaInfo* record) {
    return Record("MediaInfoValid", record->path);
}
int MediaInfoDBDelete(int type, const char* path) {
    return Record("MediaInfoDBDelete", type, Text(path));
}
int MediaInfoDBDirSave(const char* path) {
    return Record("MediaInfoDBDirSave", Text(path));
}
int MediaDBVacuum(void) {
    return Record("MediaDBVacuum");
}
int PhotoDBVacuum(void) {
    return Record("PhotoDBVacuum");
}
int KOLIDBFlush(void) {
    return Fails("KOLIDBFlush") ? -1 : 0;
}  // not recorded: it changes nothing observable
int KOLIDBSync(void) {
    return Record("KOLIDBSync");
}
int PhotoDBHarden(void) {
    return Record("PhotoDBHarden");
}

int PhotoInfoDBSave(const koli::PhotoRecord* record, int mode) {
    fake.photos.emplace_back(mode, *record);
    return Record("PhotoInfoDBSave", mode, record->path);
}
int PhotoInfoDBDelete(const char* path) {
    return Record("PhotoInfoDBDelete", Text(path));
}
int PhotoInfoDBDirDelete(const char* path) {
    return Record("PhotoInfoDBDirDelete", Text(path));
}
int KOLIIndexPhotoUpdateVideoStatus(const char* path) {
    return Record("KOLIIndexPhotoUpdateVideoStatus", Text(path));
}
int KOLIPhotoInitAllRows(void) {
    return Record("KOLIPhotoInitAllRows");
}
int KOLIPhotoDeleteNoUpdateRows(void) {
    return Record("KOLIPhotoDeleteNoUpdateRows");
}
int PhotoDBExec(const char* sql) {
    return Record("PhotoDBExec", sql) != 0 ? -1 : fake.affected_rows;
}

KOLIDBRows* PhotoInfoDBOpen(int table, const char*, const char* where, int, const char*, int, int) {
    return OpenRows("PhotoInfoDBOpen",
                    "photo " + std::to_string(table) + " " + (where != nullptr ? where : ""));
}
KOLIDBRows* MediaInfoDBOpen(int type, const char*, const char* where, int, const char*, int, int, int) {
    return OpenRows("MediaInfoDBOpen",
                    "media " + std::to_string(type) + " " + (where != nullptr ? where : ""));
}
void PhotoInfoDBClose(KOLIDBRows* rows) {
    if (rows != nullptr) delete rows->result;
    delete rows;
}
int KOLIDBFetchRow(KOLIDBResult* result, int* row) {
    return ++*row < static_cast<int>(result->rows.size()) ? 0 : -1;
}
const char* KOLIDBFetchField(KOLIDBResult* result, int row, const char* column) {
    if (row < 0 || row >= static_cast<int>(result->rows.size())) return nullptr;
    const auto& fields = result->rows[static_cast<size_t>(row)];
    const auto field = fields.find(column);
    return field != fields.end() ? field->second.c_str() : nullptr;
}
int KOLIDBExecute(KOLIDB*, const char* sql, KOLIDBResult** result) {
    if (result != nullptr) *result = nullptr;
    return Record("KOLIDBExecute", sql);
}
const char* KOLIDBErrorGet(KOLIDB*) {
    return "fake error";
}

int KOLIUpdatePhotoPath(const PhotoPathList*, const char* new_path, const char* old_path) {
    return Record("KOLIUpdatePhotoPath", new_path, old_path);
}

// ---- koliindex
int KOLIIndexCTimeMTimeGet(const char*, char* ctime, int ctime_size, char* mtime, int mtime_size) {
    snprintf(ctime, static_cast<size_t>(ctime_size), "ctime");
    snprintf(mtime, static_cast<size_t>(mtime_size), "mtime");
    return 0;
}
int KOLIIndexImgResGet(const char* path, int* width, int* height) {
    const auto size = fake.image_sizes.find(path);
    if (size == fake.image_sizes.end()) return -1;
    *width = size->second.first;
    *height = size->second.second;
    return 0;
}
void KOLIIndexMusicTableDirtySet(int dirty) {
    Record("KOLIIndexMusicTableDirtySet", dirty);
    fake.music_dirty = dirty;
}
void KOLIIndexVideoTableDirtySet(int dirty) {
    Record("KOLIIndexVideoTableDirtySet", dirty);
    fake.video_dirty = dirty;
}
int BlKOLIIndexIsMusicTableDirty(void) {
    return fake.music_dirty;
}
int BlKOLIIndexIsVideoTableDirty(void) {
    return fake.video_dirty;
}
int KOLITruncateTable(const char* table) {
    return Record("KOLITruncateTable", table);
}
int GetCoverFolder(const char* audio_path, char* folder, int size) {
    Record("GetCoverFolder", audio_path);
    snprintf(folder, static_cast<size_t>(size), "%s", fake.cover_folder.c_str());
    return fake.cover_folder.empty() ? 0 : 1;
}
void CleanOldCover(const char* folder) {
    Record("CleanOldCover", folder);
}
int GetCoverPath(const char*, char* cover_path, int size, int picture_type, int index, int image_type) {
    if (Record("GetCoverPath", picture_type, index, image_type) != 0 || fake.cover_folder.empty()) return 0;
    snprintf(cover_path, static_cast<size_t>(size), "%s/cover%d.%s", fake.cover_folder.c_str(), index,
             image_type == 1 ? "jpg" : "png");
    return 1;
}

// ---- kolisdk
int KLIBReadPidFile(const char* path) {
    return fake.pids.count(path) != 0 ? fake.pids[path] : 0;
}
void KLIBCopyright(void) {
    Record("KLIBCopyright");
}
int KLIBExec(const char* program, const char* arg1, const char* arg2, const char*, const char*) {
    return Record("KLIBExec", program, Text(arg1), Text(arg2));
}
int KLIBFileGetKeyValue(const char* file, const char* key, char* buffer, int size, int) {
    const auto value = fake.values.find(std::string(file) + ":" + key);
    snprintf(buffer, static_cast<size_t>(size), "%s",
             value != fake.values.end() ? value->second.c_str() : "");
    return value != fake.values.end() ? static_cast<int>(value->second.size()) : -1;
}
int BlKOLIFileCheckKeyValue(const char* file, const char* key, const char* value, int) {
    const auto found = fake.values.find(std::string(file) + ":" + key);
    return found != fake.values.end() && found->second == value;
}
int KLIBFileGetLine(const char* file, const char* key, char* buffer, int size, int) {
    std::ifstream lines(file);
    if (!lines) return -1;
    for (std::string line; std::getline(lines, line);)
        if (line.rfind(key, 0) == 0) {
            snprintf(buffer, static_cast<size_t>(size), "%s", line.c_str());
            return 1;
        }
    return 0;
}
int KOLILogSet1(int category, int level, unsigned event, const char* arg1, const char*, const char*,
                const char*) {
    return Record("KOLILogSet1", category, level, event, arg1);
}

}  // extern "C"
