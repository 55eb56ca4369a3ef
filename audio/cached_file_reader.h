// Positional byte access to an untrusted file through one small buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "audio/cover_file.h"
#include "base/file_reading.h"
#include "base/log.h"
#include "base/log_limit.h"
#include "base/read_ahead.h"

namespace koli {

inline constexpr int64_t kReadAhead = 16384;  // bytes per read into the buffer
inline constexpr int kUnreadable = 17;        // the value of every byte that cannot be read

/// What a disk could not read of a file.  None of it is asked for twice.
struct UnreadableBlocks {
    static constexpr int64_t kSize = 4096;  // bytes that one failed read is about: a page, to its end
    static constexpr int kMost = 256;       // failed reads of one file; a disk can take seconds for each

    struct Range {
        int64_t start;
        int64_t end;  // exclusive
    };
    Range ranges[kMost];
    int count = 0;
    int failures = 0;

    /// How much of [offset, end) can be asked for at once; 0 in a block that failed.
    int64_t AskableFrom(int64_t offset, int64_t end) const;
    /// Where the block that failed ends in which `offset` lies.
    int64_t EndOfBlockAt(int64_t offset) const;
    /// Adds the block in which `offset` lies.
    void Add(int64_t offset);
};

/// How far the search for the variable-bit-rate headers has come (audio/vbr_header.h); offsets into the file.
struct VbrScan {
    int64_t start = -1;  // where the search began; -1 = none has begun
    int64_t next = 0;    // first offset that has not been looked at
    int64_t xing = -1;   // first "Xing" before `next`, -1 = none
    int64_t vbri = -1;   // first "VBRI" before `next`, -1 = none
};

/// One open media file.  Make it with `CachedFileReader reader{}`; CachedFileOpen fills it, CachedFileClose
/// releases what it holds.  Whatever lies outside the file, or cannot be read, consists of bytes of the value
/// 17: callers cannot tell them from data, and none of the searched-for marks contains that value.  What lies
/// behind an unreadable block is read; nothing more is once the file has had its processor time
/// (base/file_reading.h).
struct CachedFileReader {
    FILE* fp = nullptr;              // open for reading; only its descriptor is used; owned
    FileReading* reading = nullptr;  // that it belongs to; not owned
    int64_t size = 0;                // bytes, at most 2^62; without an ID3v1 trailer once Id3v1Read found one
    uint8_t buffer[kReadAhead] = {};  // the bytes of [buffer_start, buffer_end)
    int64_t buffer_start = 0;         // file offset
    int64_t buffer_end = 0;           // file offset, exclusive
    int32_t mode = 0;                 // MPEG video only: system layer, 1 = MPEG-1, 2 = MPEG-2
    int64_t end_of_file = 0;          // nothing from here on is asked for
    ReadAhead ahead = {};             // a scan tells it how far it goes
    UnreadableBlocks unreadable = {};
    RepeatedMessage header_not_found = {};  // MpegFrameFind's message for this file
    VbrScan vbr_scan = {};
    CoverLimits cover_limits = {};
};

/// Opens `path` for reading (neither a FIFO nor a device can block it) and takes its size.  `reading`
/// must live as long as it is open.  False, with nothing open, when that fails, which has then been logged in
/// the name of `site`.
bool CachedFileOpen(CachedFileReader* reader, const char* path, FileReading& reading, LogSite site);

/// Closes the file; a reader that is not open is left alone.
void CachedFileClose(CachedFileReader* reader);

/// The byte at `offset`, 0 to 255, or 17 when there is none.  Outside the buffer, up to 16384 bytes from
/// `offset` on are read into it.
int CachedByteAt(CachedFileReader* reader, int64_t offset);

/// A piece of the buffer.  Valid until the reader is next used.
struct ByteWindow {
    const uint8_t* data;
    int64_t length;  // 0 = nothing could be read there
};

/// What the buffer holds from `offset` on; it is filled from there when that is less than `wanted` bytes
/// (at most 16384).  Fewer come back only at the end of the file.
ByteWindow CachedWindowAt(CachedFileReader* reader, int64_t offset, int64_t wanted = 1);

/// Where a search for anything but zeros, which has passed the buffer's bytes up to `offset`, goes on: at
/// `offset` itself, or, when that lies in a hole of a sparse file, behind the hole, at most at `end`.
int64_t CachedSkipHole(const CachedFileReader* reader, int64_t offset, int64_t end);

/// The first offset in [from, end) whose byte is not zero, `end` when all are.  Holes cost nothing.
int64_t CachedSkipZeros(CachedFileReader* reader, int64_t from, int64_t end);

/// Copies `length` bytes from `offset` on; those outside the file become 17.
void CachedCopy(CachedFileReader* reader, int64_t offset, uint8_t* bytes, size_t length);

/// Reads up to `length` bytes without moving the buffer.  Returns how many, -1 with errno set.
int64_t ReadDirect(CachedFileReader* reader, int64_t offset, void* bytes, size_t length);

/// Four bytes of seven bits each, most significant first (ID3v2.4 section 6.2).  Bit 7 is not masked, it runs
/// into the byte before.  17 for a negative offset.
uint32_t ReadSyncsafe32(CachedFileReader* reader, int64_t offset);

/// Four bytes, most significant first.  Here missing bytes are 0; a negative offset gives 17.
uint32_t ReadBe32Direct(CachedFileReader* reader, int64_t offset);

}  // namespace koli
