// The first MPEG audio frame in the packets of a program stream.
#pragma once

#include "audio/mpeg_frame.h"

namespace koli {

/// Describes the audio from `position`, the first payload byte of an audio packet, on.  A header that is the
/// first sync found is taken as it is; otherwise the first one that another frame follows.  `audio` is zero
/// when there is none.  The time is linear in the file's size.
void PacketAudioFind(CachedFileReader* reader, int64_t position, MpegHeaderInfo* audio);

}  // namespace koli
