// A bounded reader of MP4 files with libmp4v2's calls, which current systems no longer package.
//
// It reads the boxes moov/trak and moov/udta/meta/ilst and nothing besides, at most nine levels deep, without
// recursion.  A box that runs over what holds it is cut.  A box that is shorter than its own header, on the
// way to what is needed, fails the file; other boxes are not looked at.  Needed are the first sound track,
// the list of tags and the first known tag in it: a track that is damaged behind the former is one of which
// nothing is known, damage behind the latter costs no other tag.
//
// A handle may be null: every call then fails.  Nothing here throws.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/file_reading.h"

extern "C" {

struct MP4File;
typedef MP4File* MP4FileHandle;
typedef uint32_t MP4TrackId;
typedef uint64_t MP4Duration;

enum : MP4TrackId { MP4_INVALID_TRACK_ID = 0 };
constexpr MP4Duration MP4_INVALID_DURATION = ~MP4Duration{0};

/// Opens a file and reads what its tracks and tags say where.  Null when it cannot be opened, is no regular
/// file, has no "moov" box, is damaged, or has more than 1024 tracks.  The caller owns the handle and closes
/// it, `reading` before its end.
MP4FileHandle MP4Read(const char* path, uint32_t verbosity, koli::FileReading& reading);

/// Releases a handle; null is allowed.
void MP4Close(MP4FileHandle file);

// ---- Tracks.  `type` null and `subtype` 0: tracks of every type (nothing else is offered) ----------------

uint32_t MP4GetNumberOfTracks(MP4FileHandle file, const char* type, uint8_t subtype);

/// The id of the track that stands at `index` (from 0), MP4_INVALID_TRACK_ID when there is none.  Ids are
/// the reader's own, so that two tracks of a damaged file never share one.
MP4TrackId MP4FindTrackId(MP4FileHandle file, uint16_t index, const char* type, uint8_t subtype);

/// The handler type: "soun" sound, "vide" pictures, ...; "" when the track has none, null for an unknown id.
const char* MP4GetTrackType(MP4FileHandle file, MP4TrackId id);

int MP4GetTrackAudioChannels(MP4FileHandle file, MP4TrackId id);     ///< -1 = unknown
uint32_t MP4GetTrackTimeScale(MP4FileHandle file, MP4TrackId id);    ///< units per second; 0 = unknown
uint32_t MP4GetTrackBitRate(MP4FileHandle file, MP4TrackId id);      ///< bit/s, average; 0 = unknown
uint16_t MP4GetTrackVideoWidth(MP4FileHandle file, MP4TrackId id);   ///< pixels; 0 = unknown
uint16_t MP4GetTrackVideoHeight(MP4FileHandle file, MP4TrackId id);  ///< pixels; 0 = unknown
MP4Duration MP4GetTrackDuration(MP4FileHandle file,
                                MP4TrackId id);  ///< in its time scale, or MP4_INVALID_DURATION

/// `duration` in units of 1/`time_scale` second, cut to an integer; 0 for a track without a time scale.
uint64_t MP4ConvertFromTrackDuration(MP4FileHandle file, MP4TrackId id, MP4Duration duration,
                                     uint32_t time_scale);

// ---- Tags ------------------------------------------------------------------------------------------------

// Each is true when the tag is there.  `*value` is then its text, at most 4096 bytes of it, as found and
// terminated, from malloc: the caller frees it.  Else `*value` is null.
bool MP4GetMetadataName(MP4FileHandle file, char** value);
bool MP4GetMetadataAlbum(MP4FileHandle file, char** value);
bool MP4GetMetadataArtist(MP4FileHandle file, char** value);
bool MP4GetMetadataGenre(MP4FileHandle file, char** value);  ///< the numbered genre's name before the text
bool MP4GetMetadataComment(MP4FileHandle file, char** value);
bool MP4GetMetadataWriter(MP4FileHandle file, char** value);
bool MP4GetMetadataYear(MP4FileHandle file, char** value);

/// Number and total; true when there is at least a number.  An absent total is 0.
bool MP4GetMetadataTrack(MP4FileHandle file, uint16_t* number, uint16_t* total);
bool MP4GetMetadataDisk(MP4FileHandle file, uint16_t* number, uint16_t* total);

/// Where the bytes of the cover picture lie.  Valid until MP4Close; nothing to free.
struct MP4CoverData {
    int descriptor;  // of the media file; not the caller's to close
    int64_t offset;  // of the picture's first byte
};

/// The first cover picture, in place instead of in memory.  True when there is one; `*size` is
/// what its box holds in the file, which can be as much as a file can be large.
bool MP4GetMetadataCoverArt(MP4FileHandle file, MP4CoverData* data, uint64_t* size);

/// The type code of the same picture's data: 13 JPEG, 14 PNG, 0 unspecified.
bool MP4GetMetadataCoverArtFileType(MP4FileHandle file, uint32_t* type);

}  // extern "C"
