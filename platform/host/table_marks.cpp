#include "platform/host/table_marks.h"

#include <cstring>

#include "platform/koliindex.h"

namespace {
int music_dirty = 0;
int video_dirty = 0;
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
    return music_dirty;
}

int BlKOLIIndexIsVideoTableDirty(void) {
    return video_dirty;
}

}  // extern "C"
