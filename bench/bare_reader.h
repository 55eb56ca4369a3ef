// What must be asked of a file of each format, and nothing besides: the calls that the indexer is compared
// with.
#pragma once

namespace koli::bench {

/// MP3: open, read the first quarter in 16384-byte reads, look for "Xing" in each with memmem and stop at the
/// first hit.
void ReadMp3(const char* path);

/// JPEG: libexif's loader over the file, and the picture's size from its header.
void ReadPhoto(const char* path);

/// FLAC: libFLAC's stream information and its comments, two calls.
void ReadFlac(const char* path);

/// AIFF: open, audio format, close.
void ReadAiff(const char* path);

/// MP4: open, the audio tracks' figures, eleven tags, close; no probe.
void ReadMp4(const char* path);

/// The same and FFmpeg's open and stream information, in this process and unguarded.
void ReadMp4AndProbe(const char* path);

/// Any other film: FFmpeg's open and stream information, likewise.
void ReadContainer(const char* path);

/// DAT: the MPEG video parser.
void ReadMpegVideo(const char* path);

}  // namespace koli::bench
