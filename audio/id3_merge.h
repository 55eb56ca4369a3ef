// Brings what the tags and the audio frames tell together in the media information record.
#pragma once

#include "audio/id3v1.h"
#include "audio/id3v2.h"
#include "audio/mpeg_frame.h"
#include "base/media_info.h"

namespace koli {

/// Fills the text, number and stream fields of a zeroed `record` (its title may be preset).  For each field
/// the ID3v2 value counts before the ID3v1 one.  A missing argument is logged and nothing is written.  A
/// bracketed genre text in `fields` is cut in place.
void Id3MergeIntoRecord(MediaInfo* record, const MpegHeaderInfo* header, const Id3v1Block* v1,
                        Id3v2Fields* fields);

}  // namespace koli
