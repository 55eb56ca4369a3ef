// What the container library says about a media file.  A file is looked at in the child of a guarded probe
// only: the library is large and the file is anybody's.
#pragma once

#include "base/file_reading.h"
#include "base/media_info.h"

namespace koli {

/// Fills `record` from the container and its streams:
///
///   field                    from                                                       written
///   video_bitrate            the container's bit rate, bit/s, low 32 bits               always
///   duration                 whole microseconds / 1000000, whole seconds                always
///   genre, artist, title     tags; artist else author                                   when not empty
///   year                     tag date, else year: its leading digits                    when not 0
///   track                    tag: its leading digits                                    always
///   width, height            each video stream, pixels                                  when width is not 0
///   channels, sample_rate    each audio stream, Hz                                      rate when not 0
///   audio_bitrate            each audio stream: computed for PCM, else coded, bit/s     when not 0
///   album                    tag                                 when not empty and there is no video stream
///
/// An embedded cover (attached picture) is no video stream.  Only self-contained local containers are opened.
/// Returns 0, or 1 when the file cannot be opened or analysed, holds a stream of unknown type (all logged),
/// or neither video nor audio; what was written until then stays, and `reading` knows why.
int MiscMediaInfoProbe(const char* path, MediaInfo* record, FileReading& reading);

/// The same with the descriptor of a regular file, -1 when it could not be opened; `path` is then but its
/// name.  `file` stays the caller's.
int MiscMediaInfoProbeFile(int file, const char* path, MediaInfo* record, FileReading& reading);

/// In the daemon, before the first probe: lets the library make its constant tables (decoders of the usual
/// files, no data involved), so that every child finds them made.  Takes about 4 ms and 2 MB once and saves
/// each child 0.5 to 1 ms.  Calls after the first do nothing.
void ContainerProbeWarmUp();

}  // namespace koli
