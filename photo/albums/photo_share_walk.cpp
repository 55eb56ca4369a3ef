#include "base/log.h"
#include "index/record/share_path.h"
#include "photo/albums/album_name.h"
#include "photo/albums/folder_listing.h"
#include "photo/albums/photo_share.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_share";

void CreateAlbum(const char* path) {
    PhotoShareUpdate(path, kAlbumCreate);
}

void CreateAlbums(const char* path) {
    const int depth = PhotoShareDepth(path);
    if (depth == kNoAlbum || IsRecycleBinPath(path) != 0) return;
    CreateAlbum(path);
    if (depth == kTopAlbum) ForEachFolder(path, CreateAlbum);
}

}  // namespace

int PhotoShareWalk(const char* path) {
    if (path == nullptr || *path == '\0') {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    if (IsShareTop(path)) {
        ForEachFolder(path, CreateAlbums);
    } else {
        CreateAlbums(path);
    }
    return 0;
}

}  // namespace koli
