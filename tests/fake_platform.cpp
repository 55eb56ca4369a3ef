#include "tests/fake_platform.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "base/path_names.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"

using koli::test::fake;
using koli::test::Record;

void koli::LogError(LogSite site, const char* format, ...) {
    constexpr const char* kForms[] = {"%s (#) ", "%s:# ", "%s(#) ", "%s(#): ", "(%s, #) ", ""};
    char line[9000];
    const int begun = snprintf(line, sizeof line, kForms[static_cast<int>(site.form)], site.module);
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line + begun, sizeof line - static_cast<size_t>(begun), format, arguments);
    va_end(arguments);
    if (log_sink != nullptr) return log_sink(line);
    // "m: Function(12) - Text"
    std::string& text = fake.log.emplace_back(line);
    const char digits[] = "0123456789";
    const size_t number = text.find_first_of(digits, text.find_first_of(" (:,", 1));
    if (site.form == LogForm::kBare && number < text.size() && text.find('#') == std::string::npos)
        text.replace(number, text.find_first_not_of(digits, number) - number, "#");
}

void koli::LogNotice(LogSite, const char*, ...) {}

extern "C" {

// clang-format off
// ---- kolidb
int MediaInfoValid(koli::MediaInfo* record) { return Record(__func__, record->path); }
int MediaInfoDBDelete(int type, const char* path) { return Record(__func__, type, path); }
int MediaInfoDBDirSave(const char* path) { return Record(__func__, path); }
void MediaRebuildBegin(const char* path) { Record(__func__, path); }
void MediaRebuildMiss(const char* path) { Record(__func__, path); }
int MediaRebuildSavedLast(const char* path) { return fake.unsaved.count(path) == 0 ? 1 : 0; }
int MediaRebuildEnd(int is_certain) { return Record(__func__, is_certain); }
void KOLIProblemSet(const char* path, const char* reason, int kind) { Record(__func__, path, reason, kind); }
void KOLIProblemClear(const char*, int) {}
int MediaDBVacuum(void) { return Record(__func__); }
int PhotoDBVacuum(void) { return Record(__func__); }
int KOLIDBFlush(void) { return 0; }  // not recorded: it changes nothing observable
int KOLIDBSync(void) { return Record(__func__); }
int PhotoDBHarden(void) { return Record(__func__); }
void KOLIDBBatchBegin(void) {}
int KOLIDBRefusing(void) { return fake.refusing; }
const char* KOLIDBRefusalGet(int database) { return (fake.refusing & database) != 0 ? "fake refusal" : ""; }
void KOLIDBTick(void) {}
void PhotoDBUnitBegin(void) {}
int PhotoDBUnitEnd(int) { return 0; }
void PhotoDBMarkSet(const KOLIBatchMark* mark) { fake.mark = *mark; }
int PhotoDBSettingSet(const char* name, const char* value) { return fake.settings[name] = value, 0; }
int PhotoInfoDBDelete(const char* path) { return Record(__func__, path); }
int PhotoInfoDBDirDelete(const char* path) { return Record(__func__, path); }
int KOLIIndexPhotoUpdateVideoStatus(const char* path) { return Record(__func__, path); }
int PhotoDBExec(const char* sql) { return Record(__func__, sql); }
KOLIDBRows* PhotoInfoDBOpen(int, const char*, const char*, int, const char*, int, int) { return nullptr; }
void PhotoInfoDBClose(KOLIDBRows*) {}
int KOLIDBFetchRow(KOLIDBResult*, int*) { return -1; }
const char* KOLIDBFetchField(KOLIDBResult*, int, const char*) { return nullptr; }

// ---- koliindex
int KOLITruncateTable(const char* table) { return Record(__func__, table); }
int KOLITableDatabase(const char* table) { return strcmp(table, "photo_info") == 0 ? KOLI_PHOTO_DB : KOLI_MEDIA_DB; }

// ---- kolisdk
int KLIBReadPidFile(const char*) { return 0; }
int KLIBExec(const char* program, const char* arg1, const char* arg2, const char*, const char*) { return Record(__func__, program, arg1, arg2); }
int KOLILogSet1(int category, int level, unsigned event, const char* arg1, const char*, const char*, const char*) { return Record(__func__, category, level, event, arg1); }
// clang-format on

int MediaInfoDBSave(int type, const koli::MediaInfo* record) {
    fake.media.emplace_back(type, *record);
    return Record(__func__, type, record->path);
}
int PhotoInfoDBSave(const koli::PhotoRecord* record, int mode) {
    fake.photos.emplace_back(mode, *record);
    return Record(__func__, mode, record->path);
}
int PhotoDBMarkGet(KOLIBatchMark* mark) {
    *mark = fake.mark;
    return fake.mark.offset > 0 ? 0 : -1;
}
int PhotoDBMarkRemove(void) {
    fake.mark = {};
    return 0;
}
int PhotoDBSettingGet(const char* name, char* value, int size) {
    const auto found = fake.settings.find(name);
    if (found == fake.settings.end()) return 1;
    koli::CopyText(value, static_cast<size_t>(size), found->second.c_str());
    return 0;
}
int KLIBFileGetKeyValue(const char* file, const char* key, char* buffer, int size, int) {
    const std::string& value = fake.values[std::string(file) + ':' + key];
    errno = fake.unreadable;
    if (errno != 0) return -1;
    snprintf(buffer, static_cast<size_t>(size), "%s", value.c_str());
    return value.empty() ? -1 : 0;
}
int BlKOLIFileCheckKeyValue(const char* file, const char* key, const char* value, int) {
    char found[64];
    return KLIBFileGetKeyValue(file, key, found, sizeof found, 0) == 0 && strcmp(found, value) == 0 ? 1 : 0;
}
int KLIBFileGetLine(const char* file, const char* key, char* buffer, int size, int) {
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind(key, 0) == 0) return snprintf(buffer, static_cast<size_t>(size), "%s", line.c_str());
    return lines.eof() ? 0 : -1;
}
}  // extern "C"
