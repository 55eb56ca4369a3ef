// The table of formats: every extension that is indexed.
#pragma once

#include <span>

#include "base/media_info.h"

namespace koli {

/// Who reads a file, and so into which table it goes.
enum class FormatReader : unsigned char {
    kMp3,         // ID3 tags and MPEG audio frames
    kMusicProbe,  // the guarded probe
    kMp4,         // the reader of MP4 boxes, for sound alone
    kAac,         // the external decoder
    kFlac,
    kAiff,
    kMusicName,   // nobody: stored by its name
    kPlaylist,    // nobody
    kVideoProbe,  // the guarded probe
    kVideoCd,     // MPEG start codes
    kVideoName,   // nobody: disc images and subtitles
    kPicture,
    kCount
};

/// What the photo library and the converters do with it.
enum class FormatUse : unsigned char {
    kNone,
    kWebPicture,  // a browser shows it: in the photo library
    kWebJpeg,     // the same, and it may hold an EXIF block
    kWebVideo,    // a browser plays it: needs no conversion
    kUnmeasured   // nothing: a picture of whose header nobody reads the size
};

/// One row.
struct Format {
    const char* extension;  // lower case, without its dot
    FormatReader reader;
    FormatUse use = FormatUse::kNone;
};

/// All rows, in the order of the dispatch; no extension occurs twice.
std::span<const Format> Formats();

/// The row of an extension, ignoring case; null when there is none, and for a null `extension`.
const Format* FormatFind(const char* extension);

/// The table of the media store that a reader fills.
StoreType FormatStore(FormatReader reader);

}  // namespace koli
