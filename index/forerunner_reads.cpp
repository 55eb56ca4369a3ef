#include "index/forerunner_reads.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "audio/flac_blocks.h"
#include "audio/vbr_header.h"
#include "base/read_ahead.h"
#include "video/probe_reads.h"

namespace koli {
namespace {

constexpr int64_t kHead = 16384;    // bytes that every reader begins with, and behind a tag once more
constexpr int64_t kTrailer = 128;   // bytes of an ID3v1 tag
constexpr int64_t kTagHeader = 10;  // bytes of an ID3v2 tag's
constexpr int64_t kPage = 4096;
constexpr int64_t kMostSound = 1 << 23;

/// Where the sound begins: behind an ID3v2 tag, whose length has seven bits a byte (ID3v2.4 section 6.2).
int64_t SoundBegin(const uint8_t* head, int64_t count) {
    if (count < kTagHeader || memcmp(head, "ID3", 3) != 0) return 0;
    return (int64_t{head[6]} << 21 | int64_t{head[7]} << 14 | int64_t{head[8]} << 7 | head[9]) + kTagHeader;
}

/// What is read of a song: its head; the rest of a long tag, mostly a picture that becomes the cover; and,
/// when the first frame holds no variable-bit-rate header, the whole first quarter, which is searched for
/// one.
void ReadSong(int file, int64_t size) {
    ReadAheadRequest(file, std::max<int64_t>(size - kTrailer, 0), size);
    uint8_t head[kHead];
    int64_t from = 0;
    int64_t count = std::max<int64_t>(pread(file, head, sizeof head, 0), 0);
    if (const int64_t begin = SoundBegin(head, count); begin > kHead / 2) {
        ReadAheadRequest(file, count, std::min({begin + kHead, size, ReadAhead::kMost}));
        from = begin;
        count = std::max<int64_t>(pread(file, head, sizeof head, from), 0);
    }
    const auto length = static_cast<size_t>(count);
    if (memmem(head, length, "Xing", 4) != nullptr || memmem(head, length, "VBRI", 4) != nullptr) return;
    const int64_t end = VbrScanEnd(from, from + count, size);
    ReadAheadRequest(file, from + count, std::min(end, from + ReadAhead::kMost));
}

}  // namespace

bool ForerunnerHasWork(FormatReader reader) {
    return reader != FormatReader::kMusicName && reader != FormatReader::kVideoName &&
           reader != FormatReader::kPlaylist;
}

void ForerunnerRead(int file, FormatReader reader) {
    struct stat status;
    if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) return;
    switch (reader) {
        case FormatReader::kMp3:
            return ReadSong(file, status.st_size);
        case FormatReader::kFlac:
            return FlacBlocksRequest(file, status.st_size);
        case FormatReader::kMp4:
        case FormatReader::kMusicProbe:
        case FormatReader::kVideoProbe:
            return ProbeReadsRequest(file, status.st_size);
        case FormatReader::kAac:  // the decoder reads all of it
            return ReadAheadRequest(file, 0, std::min(status.st_size, kMostSound));
        case FormatReader::kAiff:
            return ReadAheadRequest(file, 0, std::min(status.st_size, kPage));
        default:
            return ReadAheadRequest(file, 0, std::min(status.st_size, kHead));
    }
}

}  // namespace koli
