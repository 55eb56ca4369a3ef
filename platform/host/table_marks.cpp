#include "platform/host/table_marks.h"

#include <cstring>

#include "platform/host/database_groups.h"
#include "platform/host/guard.h"
#include "platform/koliindex.h"

using namespace koli::host;

namespace {
int music_dirty = 0;
int video_dirty = 0;

/// A row that has been put off may yet change its table.
int Settled(const int& mark) {
    Guarded(MediaDatabase(), [] { MediaDatabase().Settle(); });
    return mark;
}
}  // namespace

namespace koli::host {

void MediaTableChanged(const char* table) {
    if (strcmp(table, "music") == 0) music_dirty = 1;
    if (strcmp(table, "video") == 0) video_dirty = 1;
}

}  // namespace koli::host

extern "C" {

void KOLIIndexMusicTableDirtySet(int dirty) {
    music_dirty = dirty;
}

void KOLIIndexVideoTableDirtySet(int dirty) {
    video_dirty = dirty;
}

int BlKOLIIndexIsMusicTableDirty(void) {
    return Settled(music_dirty);
}

int BlKOLIIndexIsVideoTableDirty(void) {
    return Settled(video_dirty);
}

}  // extern "C"
