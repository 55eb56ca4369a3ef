// Bytes and start codes of an MPEG video file: 00 00 01, then the code (ISO/IEC 11172-1, 13818-1 and -2).
//
//     code  begins
//       B3  sequence header
//       B5  extension
//       B8  group of pictures
//       C0  packet of audio stream 0
#pragma once

#include <cstdint>

#include "audio/cached_file_reader.h"
#include "base/log_limit.h"

namespace koli {

/// One MPEG video file.  Positions are file offsets.
struct MpegVideoReader {
    CachedFileReader file = {};
    RepeatedMessage invalid_offset = {};  // MpegByteAt's message for this file
};

enum MpegStartCode : int {
    kSequenceHeaderCode = 0xB3,
    kExtensionCode = 0xB5,
    kGroupOfPicturesCode = 0xB8,
    kAudioStream0Code = 0xC0,
};

/// The byte at `position`, or 17, with a message, when there is none.
int MpegByteAt(MpegVideoReader* reader, int64_t position);

/// Two bytes, the more significant first.
int MpegWordAt(MpegVideoReader* reader, int64_t position);

bool MpegStartCodeAt(MpegVideoReader* reader, int64_t position, int code);

/// The next 00 00 01 at or after `position`, -1 when there is none.  Only the first 100000 bytes of a file
/// are searched, and not its last four.
int64_t MpegStartCodePrefixFind(MpegVideoReader* reader, int64_t position);

/// The next start code `code`, -1 when there is none; within the same bounds.
int64_t MpegStartCodeFind(MpegVideoReader* reader, int64_t position, int code);

/// The next start code and, in `*code`, which one it is; -1 when there is none.
int64_t MpegStartCodeNext(MpegVideoReader* reader, int64_t position, int* code);

/// Logs how many of the messages about this file were not written, if any.  Call it when the file is done.
void MpegLogSuppressed(const MpegVideoReader* reader);

}  // namespace koli
