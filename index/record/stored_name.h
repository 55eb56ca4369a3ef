// What a file's path and size say about whether it is stored: for those who store it, and for those who have
// to know before.
#pragma once

#include <cstdint>

namespace koli {

/// True for the name of an AppleDouble companion ("._name"), which goes with a file that is one by itself.
bool IsCompanion(const char* name);

/// What the media store makes of a file by its path.
enum class NameVerdict {
    kStored,
    kNoExtension,
    kUnknownExtension,  // it is not in the table of formats
    kCompanion,
    kPictureInMetadata  // a picture that has "@eaDir" in its path: a cover or a thumbnail
};
NameVerdict NameVerdictOf(const char* path);

/// The largest file, in bytes, that enters the photo library: 20 MiB less one byte.
inline constexpr int64_t kMaxPhotoSize = 20971519;

/// What the photo library makes of a picture that a browser can show.
enum class PhotoVerdict {
    kTaken,
    kInMetadata,  // it has "@eaDir" in its path
    kHidden,      // its name begins with a '.'
    kEmpty,
    kTooLarge
};
PhotoVerdict PhotoNameVerdict(const char* path);
PhotoVerdict PhotoSizeVerdict(int64_t size);

}  // namespace koli
