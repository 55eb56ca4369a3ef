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
int MusicFileAdd(const KnownPath& path, FileReading&) { return Record(__func__, path.text()); }
int MusicFileDelete(const char* path) { return Record(__func__, path); }
int FlacFileAdd(const KnownPath& path, FileReading&) { return Record(__func__, path.text()); }
int AiffFileAdd(const KnownPath& path, FileReading&) { return Record(__func__, path.text()); }
int AiffFileDelete(const char* path) { return Record(__func__, path); }
int AacFileAdd(const KnownPath& path, FileReading&) { return Record(__func__, path.text()); }
int MediaMusicAdd(const KnownPath& path, FileReading&) { return Record(__func__, path.text()); }
int MediaMusicDelete(const char* path) { return Record(__func__, path); }
int MediaMusicSave(const KnownPath& path, FileReading&) { return Record(__func__, path.text()); }
int MediaVideoAdd(const KnownPath& path, FileReading&) { return Record(__func__, path.text()); }
int MediaVideoDelete(const char* path) { return Record(__func__, path); }
int MediaVideoSave(const KnownPath& path, FileReading&) { return Record(__func__, path.text()); }
int Mp4Add(const KnownPath& path, FileReading&) { return Record(__func__, path.text()); }
int Mp4Delete(const char* path) { return Record(__func__, path); }
int VideoAdd(const KnownPath& path, FileReading&) { return Record(__func__, path.text()); }
int VideoDelete(const char* path) { return Record(__func__, path); }
int PhotoMediaAdd(const KnownPath& path, FileReading&) { return Record(__func__, path.text()); }
int PhotoMediaDelete(const char* path) { return Record(__func__, path); }

int PhotoLibraryIndex(const KnownPath& path, int mode) { return Record(__func__, path.text(), mode); }
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
