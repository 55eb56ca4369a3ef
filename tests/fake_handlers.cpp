#include "tests/fake_handlers.h"

#include "audio/aiff.h"
#include "audio/flac.h"
#include "audio/music.h"
#include "index/aac.h"
#include "photo/photo.h"
#include "photo/photo_library.h"
#include "photo/photo_rename.h"
#include "photo/photo_resync.h"
#include "photo/photo_share.h"
#include "photo/share_fs.h"
#include "tests/fake_platform.h"
#include "video/media.h"
#include "video/mp4.h"
#include "video/video.h"

namespace koli {

std::map<std::string, int> test::handler_results;

int test::RecordCall(const char* function, const char* path, const std::string& rest) {
    fake.calls.push_back(std::string(function) + " " + (path != nullptr ? path : "(null)") + rest);
    return handler_results.count(function) != 0 ? handler_results[function] : 0;
}

static int Record(const char* function, const char* path) {
    return test::RecordCall(function, path);
}

static std::string Then(const char* old_path) {
    return std::string(" ") + (old_path != nullptr ? old_path : "(null)");
}

// clang-format off
int MusicFileAdd(const char* path) { return Record(__func__, path); }
int MusicFileDelete(const char* path) { return Record(__func__, path); }
int FlacFileAdd(const char* path) { return Record(__func__, path); }
int AiffFileAdd(const char* path) { return Record(__func__, path); }
int AiffFileDelete(const char* path) { return Record(__func__, path); }
int AacFileAdd(const char* path) { return Record(__func__, path); }
int MediaMusicAdd(const char* path) { return Record(__func__, path); }
int MediaMusicDelete(const char* path) { return Record(__func__, path); }
int MediaMusicSave(const char* path) { return Record(__func__, path); }
int MediaVideoAdd(const char* path) { return Record(__func__, path); }
int MediaVideoDelete(const char* path) { return Record(__func__, path); }
int MediaVideoSave(const char* path) { return Record(__func__, path); }
int Mp4Add(const char* path) { return Record(__func__, path); }
int Mp4Delete(const char* path) { return Record(__func__, path); }
int VideoAdd(const char* path) { return Record(__func__, path); }
int VideoDelete(const char* path) { return Record(__func__, path); }
int PhotoMediaAdd(const char* path) { return Record(__func__, path); }
int PhotoMediaDelete(const char* path) { return Record(__func__, path); }

int PhotoLibraryIndex(const char* path, int mode) { return test::RecordCall(__func__, path, " " + std::to_string(mode)); }
int PhotoFolderResync(const char* path) { return Record(__func__, path); }
int PhotoShareResync(const char* path) { return Record(__func__, path); }
int PhotoShareWalk(const char* path) { return Record(__func__, path); }
int PhotoShareUpdate(const char* path, int op) { return test::RecordCall(__func__, path, " " + std::to_string(op)); }
int PhotoShareRename(const char* path, const char* old) { return test::RecordCall(__func__, path, Then(old)); }
int PhotoPathRename(const char* path, const char* old, int is_directory) { return test::RecordCall(__func__, path, Then(old) + " " + std::to_string(is_directory)); }
int VideoDescPathRename(int table, const char* path, const char* old) { return test::RecordCall(__func__, path, Then(old) + " " + std::to_string(table)); }
void PhotoShareFsCheck() { test::fake.calls.emplace_back(__func__); }
// clang-format on

}  // namespace koli
