// A reader of AIFF and AIFF-C files with libaiff's calls, which current systems no longer package.
//
// Audio Interchange File Format 1.3 and AIFF-C: big-endian chunks inside one FORM chunk.
//
//     offset size
//          0    4  "FORM"
//          4    4  length of what follows (not used: the file's end bounds the chunks)
//          8    4  "AIFF" or "AIFC"
//         12       chunks: 4 bytes name, 4 bytes length, that many bytes, one more when the length is odd
//
// The COMM chunk, which may stand behind the sound data:
//
//          0    2  channels
//          2    4  sample frames (AIFF-C with compression "ima4": packets of 64 frames)
//          6    2  bits per sample
//          8   10  sampling rate, IEEE 80-bit extended
//         18    4  AIFF-C: compression type
#pragma once

#include <cstdint>

#include "base/file_reading.h"

extern "C" {

struct AIFF_File;
typedef AIFF_File* AIFF_Ref;

/// The only mode of AIFF_OpenFile that there is.
enum { F_RDONLY = 1 };

/// Opens an AIFF or AIFF-C file that has a readable COMM chunk; sound data need not be there.  `flags` is
/// F_RDONLY. Null for any other file.  The caller owns the handle and closes it.
AIFF_Ref AIFF_OpenFile(const char* path, int flags, koli::FileReading& reading);

/// Fills in the audio format; every pointer may be null.  `sampling_rate` is what the 80-bit number holds:
/// it can be negative, infinite or not-a-number.  `segment_size` is the bytes of one sample.  Returns 1, or
/// -1 for a null handle.
int AIFF_GetAudioFormat(AIFF_Ref file, uint64_t* sample_frames, int* channels, double* sampling_rate,
                        int* bits_per_sample, int* segment_size);

/// Releases a handle; null is allowed.
void AIFF_CloseFile(AIFF_Ref file);

}  // extern "C"
