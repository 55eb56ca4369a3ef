// What a path says about the share it lies in.
#pragma once

#include <cstddef>

#include "base/media_info.h"

namespace koli {

/// 1 when `path` is the photo share of a volume or lies inside it, else 0, also for null.  Only volumes whose
/// mount point is exactly eight characters long ("/volume1") are recognised; the share's name may be in any
/// case.
int IsPhotoSharePath(const char* path);

/// 1 when `path` is the "#recycle" folder at the top of a share ("/volume1/music/#recycle") or lies inside
/// it, else 0.  A "#recycle" further down is an ordinary folder.
int IsRecycleBinPath(const char* path);

/// Reads where a share's link points to, without trailing '/'s.  Returns 0, or -1 when it is no link that can
/// be read.
int ShareTargetGet(const char* share_link, char (&target)[kPathSize]);

/// Removes the '/'s at the end of `path` in place; one that stands alone stays.
void DropTrailingSlashes(char* path);

}  // namespace koli
