#include "index/forerunner_reads.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "base/read_ahead.h"

namespace koli {
namespace {

constexpr int64_t kHead = 16384;    // bytes that every reader begins with, and behind a tag once more
constexpr int64_t kTrailer = 128;   // bytes of an ID3v1 tag
constexpr int64_t kTagHeader = 10;  // bytes of an ID3v2 tag's
constexpr int64_t kContainer = 1 << 18;

/// Where the sound begins: behind an ID3v2 tag, whose length has seven bits a byte (ID3v2.4 section 6.2).
int64_t SoundBegin(const uint8_t* head, int64_t count) {
    if (count < kTagHeader || memcmp(head, "ID3", 3) != 0) return 0;
    return (int64_t{head[6]} << 21 | int64_t{head[7]} << 14 | int64_t{head[8]} << 7 | head[9]) + kTagHeader;
}

/// Without a variable-bit-rate header in its first frame, the whole first quarter of a song is searched for
/// one.
void ReadSong(int file, int64_t size) {
    ReadAheadRequest(file, std::max<int64_t>(size - kTrailer, 0), size);
    uint8_t head[kHead];
    int64_t from = 0;
    int64_t count = pread(file, head, sizeof head, 0);
    if (const int64_t begin = SoundBegin(head, count); begin > kHead / 2) {
        from = begin;
        count = pread(file, head, sizeof head, from);
    }
    const auto length = static_cast<size_t>(std::max<int64_t>(count, 0));
    if (memmem(head, length, "Xing", 4) != nullptr || memmem(head, length, "VBRI", 4) != nullptr) return;
    ReadAheadRequest(file, from + count, std::min(size / 4, from + ReadAhead::kMost));
}

}  // namespace

void ForerunnerRead(int file, FormatReader reader) {
    struct stat status;
    if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) return;
    switch (reader) {
        case FormatReader::kMp3:
            ReadSong(file, status.st_size);
            return;
        case FormatReader::kMusicProbe:
        case FormatReader::kVideoProbe:
            ReadAheadRequest(file, 0, std::min<int64_t>(status.st_size, kContainer));
            return;
        case FormatReader::kMusicName:
        case FormatReader::kVideoName:
        case FormatReader::kPlaylist:
            return;
        default:
            ReadAheadRequest(file, 0, std::min<int64_t>(status.st_size, kHead));
    }
}

}  // namespace koli
