// The ID3v2 tag at the start of a file, versions 2.2, 2.3 and 2.4.
//
//   0   3  "ID3"
//   3   1  major version, 2 to 4
//   4   1  revision          } never examined: no unsynchronisation, no footer; an extended header ends the
//   5   1  flags             } frame scan at once
//   6   4  length of what follows, 7 bits a byte
//  10      frames:  2.3, 2.4:  identifier 4, size 4 (2.4: 7 bits a byte), flags 2 (ignored), data
//                   2.2:       identifier 3, size 3, data
#pragma once

#include <cstddef>
#include <cstdint>

#include "audio/cached_file_reader.h"

namespace koli {

/// The texts of a tag.  A field whose mark is 1 holds a byte-order mark and UTF-16 code units up to a zero
/// unit, any other the tag's own bytes up to a NUL.  Every field is terminated.  Zero it before a frame
/// reader runs.
struct Id3v2Fields {
    char title[1024];
    char artist[1024];
    char album[1024];
    char year[8];
    char genre[128];
    char track[8];  // cut at its '/'
    char disc[8];   // cut at its '/'
    char composer[1024];
    char comment[1024];
    int32_t title_utf16;  // a mark tells about the frame that was stored last
    int32_t artist_utf16;
    int32_t album_utf16;
    int32_t year_utf16;
    int32_t genre_utf16;
    int32_t composer_utf16;
    int32_t comment_utf16;
    int32_t picture_count;  // pictures saved: 0 or 1
};

/// The tag's length in bytes, its 10 byte header included, and its major version; 0 when there is no tag
/// (`*version` is then untouched).
int64_t Id3v2Probe(CachedFileReader* reader, int* version);

/// Read the frames of a version 2.2 tag, and of a 2.3 or later one, into `fields`.  `path` is the audio
/// file's: the first picture that can be saved becomes its cover.  A missing argument is logged.
void Id3v22FramesRead(Id3v2Fields* fields, CachedFileReader* reader, int version, const char* path);
void Id3v23FramesRead(Id3v2Fields* fields, CachedFileReader* reader, int version, const char* path);

/// Copies UTF-16 text with its byte-order mark: pairs of bytes up to a zero pair, or while fewer than size -
/// 2 bytes are copied.  What remains of the `size` bytes at `field` becomes zero; so does all of it when
/// `text` does not begin with a byte-order mark.  `text` holds a zero pair or at least `size` bytes.
void Utf16BomCopy(const char* text, char* field, size_t size);

/// True when two bytes are a UTF-16 byte-order mark of either order.
bool IsUtf16Bom(const char* text);

}  // namespace koli
