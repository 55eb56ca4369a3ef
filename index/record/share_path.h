// What a path says about the share it lies in.
#pragma once

#include <cstddef>

#include "base/media_info.h"

namespace koli {

/// Lengths of a volume's path, "/volume1", and of the photo share's real top directory, "/volume1/photo".
inline constexpr size_t kVolumeLength = 8;
inline constexpr size_t kShareTopLength = kVolumeLength + sizeof "/photo" - 1;

/// The folder at a share's top for what was thrown away.
inline constexpr char kRecycleFolder[] = "#recycle";

/// 1 when `path` is the photo share of a volume or lies inside it, else 0, also for null.  Only volumes whose
/// mount point is exactly eight characters long ("/volume1") are recognised; the share's name may be in any
/// case.
int IsPhotoSharePath(const char* path);

/// 1 when `path` is the "#recycle" folder at the top of a share ("/volume1/music/#recycle") or lies inside
/// it, else 0.  A "#recycle" further down is an ordinary folder.
int IsRecycleBinPath(const char* path);

/// Reads where a share's link points to: a target that is relative is taken relative to the link's folder,
/// "." and ".." in it are resolved by the text alone.  False when it is no link that can be read, or its
/// target fits no path.
bool ShareTargetGet(const char* share_link, char (&target)[kPathSize]);

/// Takes out of `path` in place what names nothing, so that one file has one name: '/'s behind a '/' and at
/// the end, and components ".".  Of a path that is nothing else its first character stays.  ".." stays: what
/// it means depends on the links in front of it.
void PathCollapse(char* path);

/// True when a component of `path` is "..".
bool HasParentComponent(const char* path);

}  // namespace koli
