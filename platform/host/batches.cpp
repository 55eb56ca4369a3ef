// What concerns whole databases and whole tables: groups, refusals, how far a batch has come.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/log.h"
#include "platform/host/database_groups.h"
#include "platform/host/guard.h"
#include "platform/host/problems.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"

namespace koli::host {
namespace {

constexpr const char kModule[] = "kolidb";
constexpr const char kMark[] = "batch_mark";  // "OFFSET HASH", the hash in hexadecimal

/// Does it with both databases, whatever becomes of the other.  Returns 0 or -1.
int OfBoth(int (Database::*step)()) {
    const int media = Guarded(MediaDatabase(), [step] { return (MediaDatabase().*step)(); });
    const int photo = Guarded(PhotoDatabase(), [step] { return (PhotoDatabase().*step)(); });
    return media != 0 || photo != 0 ? -1 : 0;
}

}  // namespace
}  // namespace koli::host

using namespace koli::host;

extern "C" {

void KOLIDBBatchBegin(void) {
    ProblemBatchBegin();
    MediaDatabase().BeginBatch();
    PhotoDatabase().BeginBatch();
}

int KOLIDBRefusing(void) {
    return (MediaDatabase().IsRefusing() ? KOLI_MEDIA_DB : 0) |
           (PhotoDatabase().IsRefusing() ? KOLI_PHOTO_DB : 0);
}

const char* KOLIDBRefusalGet(int database) {
    return database == KOLI_MEDIA_DB ? MediaDatabase().refusal() : PhotoDatabase().refusal();
}

void KOLIDBTick(void) {
    for (Database* each : {&MediaDatabase(), &PhotoDatabase()})
        Guarded(*each, [each] { each->Tick(); });
}

int KOLIDBFlush(void) {
    return OfBoth(&Database::Flush);
}

int KOLIDBSync(void) {
    return OfBoth(&Database::Sync);
}

int PhotoDBHarden(void) {
    return Guarded(PhotoDatabase(), [&] { return PhotoDatabase().Harden(); });
}

void PhotoDBUnitBegin(void) {
    Guarded(PhotoDatabase(), [&] { PhotoDatabase().BeginUnit(); });
}

int PhotoDBUnitEnd(int keep) {
    return Guarded(PhotoDatabase(), [&] { return PhotoDatabase().EndUnit(keep != 0); });
}

int PhotoDBMarkGet(KOLIBatchMark* mark) {
    return Guarded(PhotoDatabase(), [&] {
        const auto rows = PhotoDatabase().Ask("SELECT value FROM setting WHERE name = ?1", kMark);
        const char* value = rows != nullptr ? rows->Field(0, "value") : nullptr;
        if (value == nullptr) return -1;
        char* end = nullptr;
        mark->offset = strtoll(value, &end, 10);
        if (end == value || *end != ' ') return -1;
        mark->hash = strtoull(end, nullptr, 16);
        return 0;
    });
}

void PhotoDBMarkSet(const KOLIBatchMark* mark) {
    Guarded(PhotoDatabase(), [&] {
        char text[64];
        snprintf(text, sizeof text, "%" PRId64 " %" PRIx64, mark->offset, mark->hash);
        PhotoDatabase().SetNote(kMark, text);
    });
}

int PhotoDBMarkRemove(void) {
    return Guarded(PhotoDatabase(), [&] { return PhotoDatabase().RemoveNote(kMark); });
}

int KOLITruncateTable(const char* table) {
    const int id = KOLITableDatabase(table);
    if (id == 0) {
        KOLI_LOG("No such table [%s].", table != nullptr ? table : "");
        return -1;
    }
    Database& database = id == KOLI_MEDIA_DB ? MediaDatabase() : PhotoDatabase();
    return Guarded(database, [&database, id, table] {
        if (id == KOLI_MEDIA_DB) ProblemForgetTable(table);
        return database.Execute(std::string("DELETE FROM ") + table) >= 0 ? 0 : -1;
    });
}

int MediaDBVacuum(void) {
    return Guarded(MediaDatabase(), [&] { return MediaDatabase().Vacuum(); });
}

int PhotoDBVacuum(void) {
    return Guarded(PhotoDatabase(), [&] { return PhotoDatabase().Vacuum(); });
}

}  // extern "C"
