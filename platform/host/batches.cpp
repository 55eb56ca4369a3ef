// What a batch asks of both databases: their groups, what they refuse, how far it has come.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "platform/host/database_groups.h"
#include "platform/host/problems.h"
#include "platform/kolidb.h"

namespace koli::host {
namespace {

constexpr const char kMark[] = "batch_mark";  // "OFFSET HASH", the hash in hexadecimal

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
    MediaDatabase().Tick();
    PhotoDatabase().Tick();
}

int KOLIDBFlush(void) {
    ProblemSettle();
    const int media = MediaDatabase().Flush(), photo = PhotoDatabase().Flush();
    return media != 0 || photo != 0 ? -1 : 0;
}

int KOLIDBSync(void) {
    ProblemSettle();
    const int media = MediaDatabase().Sync(), photo = PhotoDatabase().Sync();
    return media != 0 || photo != 0 ? -1 : 0;
}

int PhotoDBHarden(void) {
    return PhotoDatabase().Harden();
}

void PhotoDBUnitBegin(void) {
    PhotoDatabase().BeginUnit();
}

int PhotoDBUnitEnd(int keep) {
    return PhotoDatabase().EndUnit(keep != 0);
}

int PhotoDBMarkGet(KOLIBatchMark* mark) {
    const std::unique_ptr<SqlRows> rows =
        PhotoDatabase().Query("SELECT value FROM setting WHERE name = 'batch_mark'");
    const char* value = rows != nullptr ? rows->Field(0, "value") : nullptr;
    if (value == nullptr) return -1;
    char* end = nullptr;
    mark->offset = strtoll(value, &end, 10);
    if (end == value || *end != ' ') return -1;
    mark->hash = strtoull(end, nullptr, 16);
    return 0;
}

void PhotoDBMarkSet(const KOLIBatchMark* mark) {
    char text[64];
    snprintf(text, sizeof text, "%" PRId64 " %" PRIx64, mark->offset, mark->hash);
    PhotoDatabase().SetNote(kMark, text);
}

int PhotoDBMarkRemove(void) {
    return PhotoDatabase().RemoveNote(kMark);
}

}  // extern "C"
