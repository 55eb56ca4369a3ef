// Recorders in place of the format handlers and the photo library, for tests of the dispatch, the walk and
// the queue.
#include "audio/aiff.h"
#include "audio/flac.h"
#include "audio/music.h"
#include "index/aac.h"
#include "photo/albums/photo_rename.h"
#include "photo/albums/photo_resync.h"
#include "photo/albums/photo_share.h"
#include "photo/albums/share_fs.h"
#include "photo/photo.h"
#include "photo/photo_library.h"
#include "tests/fake_platform.h"
#include "video/media.h"
#include "video/mp4.h"
#include "video/video.h"

namespace koli {

using test::Record;

// clang-format off
int MusicFileAdd(const char* path, FileReading&) { return Record(__func__, path); }
int MusicFileDelete(const char* path) { return Record(__func__, path); }
int FlacFileAdd(const char* path, FileReading&) { return Record(__func__, path); }
int AiffFileAdd(const char* path, FileReading&) { return Record(__func__, path); }
int AiffFileDelete(const char* path) { return Record(__func__, path); }
int AacFileAdd(const char* path, FileReading&) { return Record(__func__, path); }
int MediaMusicAdd(const char* path, FileReading&) { return Record(__func__, path); }
int MediaMusicDelete(const char* path) { return Record(__func__, path); }
int MediaMusicSave(const char* path, FileReading&) { return Record(__func__, path); }
int MediaVideoAdd(const char* path, FileReading&) { return Record(__func__, path); }
int MediaVideoDelete(const char* path) { return Record(__func__, path); }
int MediaVideoSave(const char* path, FileReading&) { return Record(__func__, path); }
int Mp4Add(const char* path, FileReading&) { return Record(__func__, path); }
int Mp4Delete(const char* path) { return Record(__func__, path); }
int VideoAdd(const char* path, FileReading&) { return Record(__func__, path); }
int VideoDelete(const char* path) { return Record(__func__, path); }
int PhotoMediaAdd(const char* path, FileReading&) { return Record(__func__, path); }
int PhotoMediaDelete(const char* path) { return Record(__func__, path); }

int PhotoLibraryIndex(const char* path, int mode) { return Record(__func__, path, mode); }
int PhotoFolderResync(const char* path) { return Record(__func__, path); }
int PhotoShareResync(const char* path) { return Record(__func__, path); }
int PhotoShareWalk(const char* path) { return Record(__func__, path); }
int PhotoShareUpdate(const char* path, int op) { return Record(__func__, path, op); }
int PhotoShareRename(const char* path, const char* old) { return Record(__func__, path, old); }
int PhotoPathRename(const char* path, const char* old, int is_directory) { return Record(__func__, path, old, is_directory); }
int VideoDescPathRename(int table, const char* path, const char* old) { return Record(__func__, path, old, table); }
void PhotoShareFsCheck() { Record(__func__); }
// clang-format on

}  // namespace koli
