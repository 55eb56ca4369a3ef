// What an index request asks for.
#pragma once

namespace koli {

/// What to do with a path.
enum IndexMode : int {
    kModeAdd = 1,      // store what is there
    kModeDelete = 2,   // remove what is gone
    kModeRebuild = 3,  // empty and store whole shares
    kModeUpdate = 5    // look again at what is there, photo library only
};

/// For which stores a walk works, as a bit set.
enum WalkTypes : int { kWalkMediaStore = 1, kWalkPhotoLibrary = 2 };

/// With kModeRebuild the same argument names the shares instead.
enum RebuildTypes : int { kRebuildAll = 1, kRebuildMusic = 4, kRebuildVideo = 8 };

}  // namespace koli
