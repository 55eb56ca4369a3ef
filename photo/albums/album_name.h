// From a folder of the photo share to the name of its album.
#pragma once

#include "index/record/share_path.h"

namespace koli {

/// The depths of a folder in the share.
enum AlbumDepth : int {
    kTopAlbum = 0,  // directly inside the share: "Trip"
    kSubAlbum = 1,  // one level below: "Trip/Day1"
    kNoAlbum = 2    // anything else, the share's top itself included
};

/// The AlbumDepth of a folder of the photo share.  Null and the empty path are logged and give kNoAlbum.
int PhotoShareDepth(const char* path);

/// The album's name, the path relative to the share's top: a pointer into `path`, "" for the top itself and
/// for paths that are too short to lie inside it.
const char* AlbumNameOf(const char* path);

/// The depth as people see it: what lies in the share's "#recycle" has the depth that it had outside.
int AlbumLevelOf(const char* path);

/// True when the path is as long as the share's top: then it is the top.
bool IsShareTop(const char* path);

/// True when the path lies on another volume than the share that has the albums.  False when nobody knows, as
/// the share's link cannot be read.
bool IsOnOtherVolume(const char* path);

}  // namespace koli
