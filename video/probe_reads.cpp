#include "video/probe_reads.h"

#include <unistd.h>

#include <algorithm>
#include <bit>
#include <string_view>

#include "base/read_ahead.h"
#include "compat/mp4_boxes.h"

namespace koli {
namespace {

using compat::FourCc;
using compat::LoadBe32;
using compat::LoadBe64;
using namespace std::string_view_literals;

constexpr int64_t kBuffer = 32768;               // bytes that the library reads at once
constexpr int64_t kMostHead = 5'000'000;         // bytes that it searches for streams
constexpr int64_t kMostIndex = 1 << 24;          // bytes
constexpr int64_t kMostSize = int64_t{1} << 62;  // no offset that is made from it overflows
constexpr int kMostParts = 64;                   // of a file that are looked for
constexpr int64_t kMostStep = 1 << 18;           // bytes
constexpr size_t kWindow = 8192;                 // bytes that hold what is looked for, mostly

/// An open file; nothing is asked for outside of it.
struct ProbedFile {
    int descriptor;
    int64_t size;

    void Ask(int64_t from, int64_t length) const {
        ReadAheadRequest(descriptor, std::max<int64_t>(from, 0), std::min(size, from + length));
    }
    /// By the calls that the probe's child may make.
    std::string_view Read(int64_t from, char* bytes, size_t count) const {
        const ssize_t got = lseek(descriptor, from, SEEK_SET) == from ? read(descriptor, bytes, count) : 0;
        return {bytes, static_cast<size_t>(std::max<ssize_t>(got, 0))};
    }
};

const uint8_t* BytesOf(std::string_view text) {
    return reinterpret_cast<const uint8_t*>(text.data());
}

// ---- Files that are rows of parts, which tell their lengths: the index may stand anywhere.

using HeaderParse = bool(const uint8_t* header, size_t got, compat::BoxCursor* row, compat::Box* part);

/// A chunk of a RIFF file: name, length in little-endian order; one byte more behind an odd one.
bool ChunkHeaderParse(const uint8_t* header, size_t got, compat::BoxCursor* row, compat::Box* chunk) {
    if (got < 8) return false;
    const int64_t length = __builtin_bswap32(LoadBe32(header + 4));
    *chunk = {LoadBe32(header), row->position + 8, row->position + 8 + length + length % 2};
    row->position = chunk->end;
    return true;
}

bool IsIndex(uint32_t type) {
    return type == FourCc("moov") || type == FourCc("idx1");
}

/// An index is read whole, of the first sound and pictures `media` bytes, of the rest what it begins with.
void AskForParts(const ProbedFile& file, int64_t from, HeaderParse* parse, int64_t media) {
    compat::BoxCursor row{from, file.size};
    for (int parts = 0; parts < kMostParts && row.position < file.size; ++parts) {
        char bytes[compat::kBoxHeaderSize];
        const int64_t begin = row.position;
        const std::string_view header = file.Read(begin, bytes, sizeof bytes);
        compat::Box part;
        if (!parse(BytesOf(header), header.size(), &row, &part)) return;
        const bool is_media = part.type == FourCc("mdat");
        const int64_t index = IsIndex(part.type) ? std::min(part.end - begin, kMostIndex) : 0;
        const int64_t worth = is_media ? media : std::max(index, kBuffer);
        if (worth > 0) file.Ask(begin, worth + int64_t{compat::kBoxHeaderSize});
        if (is_media) media = 0;
    }
}

void AskForSound(const ProbedFile& file, std::string_view) {
    AskForParts(file, 0, compat::BoxHeaderParse, kBuffer);
}
void AskForFilm(const ProbedFile& file, std::string_view) {
    AskForParts(file, 0, compat::BoxHeaderParse, 3 * kBuffer);
}
void AskForChunks(const ProbedFile& file, std::string_view) {
    AskForParts(file, 12, ChunkHeaderParse, kBuffer);
}

// ---- Films whose heads tell how long they play: some seconds of them are read.

double BeFloat32(const uint8_t* bytes) {
    return static_cast<double>(std::bit_cast<float>(LoadBe32(bytes)));
}
double BeFloat64(const uint8_t* bytes) {
    return std::bit_cast<double>(LoadBe64(bytes));
}
double LeInteger64(const uint8_t* bytes) {
    return static_cast<double>(__builtin_bswap64(LoadBe64(bytes)));
}

struct PlayingTime {
    std::string_view mark;
    size_t behind;  // so many bytes behind the mark's begin it stands
    double (*load)(const uint8_t*);
    double unit;  // seconds
    double read;  // seconds; of most films
};

constexpr PlayingTime kPlayingTimes[] = {
    {"\x44\x89\x88"sv, 3, BeFloat64, 1e-3, 1},  // Matroska; its unit is another one in few files
    {"\x44\x89\x84"sv, 3, BeFloat32, 1e-3, 1},
    {"duration\0"sv, 9, BeFloat64, 1, 2},  // Flash video
    {"\xA1\xDC\xAB\x8C\x47\xA9\xCF\x11\x8E\xE4\0\xC0\x0C\x20\x53\x65"sv, 64, LeInteger64, 1e-7, 2.6},  // ASF
};

void AskByPlayingTime(const ProbedFile& file, std::string_view head) {
    for (const PlayingTime& time : kPlayingTimes) {
        const size_t at = head.find(time.mark);
        if (at == std::string_view::npos || head.size() - at < time.behind + 8) continue;
        const double seconds = time.load(BytesOf(head) + at + time.behind) * time.unit;
        const double bytes = static_cast<double>(file.size) / seconds * time.read;
        // Where the first buffer holds nearly that much, it mostly is enough.  A time may be 0, or no number.
        if (seconds >= time.read && bytes >= 2 * kBuffer)
            file.Ask(0, static_cast<int64_t>(std::min<double>(bytes, kMostHead)));
        return;
    }
}

// ---- Program streams: some seconds of them are read, which their clocks tell.

/// The last clock in these bytes, in 90000ths of a second; -1 when there is none.  It stands in a pack's
/// header (ISO/IEC 11172-1 clause 2.4.3.2, 13818-1 clause 2.5.3.3) as 33 bits with marker bits between.
int64_t PackClock(std::string_view bytes) {
    const size_t at = bytes.substr(0, bytes.size() - std::min<size_t>(bytes.size(), 8)).rfind("\0\0\1\xBA"sv);
    if (at == std::string_view::npos) return -1;
    const uint64_t field = LoadBe64(BytesOf(bytes) + at + 4);
    const uint64_t clock = field >> (field >> 62 == 1 ? 27 : 25);
    return static_cast<int64_t>((clock >> 32 & 7) << 30 | (clock >> 16 & 0x7FFF) << 15 | (clock & 0x7FFF));
}

/// Goes on in steps, each of which at most doubles what has been asked for: rates vary.
void AskByClock(const ProbedFile& file, std::string_view head) {
    constexpr int64_t kRead = 482'000;  // 5.35 s
    const int64_t first = PackClock(head);
    if (first < 0) return;
    const int64_t most = std::min(file.size, kMostHead);
    int64_t end = 4 * kBuffer;
    for (file.Ask(0, end); end < most;) {
        char window[kWindow];
        const int64_t clock = PackClock(file.Read(end - kWindow, window, sizeof window));
        const int64_t passed = clock - first;
        if (clock >= 0 && (passed <= 0 || passed >= kRead)) return;
        const int64_t wanted = clock >= 0 ? end * kRead / passed : end + 2 * kBuffer;
        const int64_t next = std::min({wanted, 2 * end, most});
        file.Ask(end, next - end);
        if (next == wanted && clock >= 0 && next - end < end / 4) return;
        end = next;
    }
}

// ---- What is told apart by its first bytes.

struct Container {
    size_t at;
    std::string_view mark;
    int64_t head;  // bytes that are read from its begin on, of most files
    int64_t tail;  // bytes that are read at its end
    void (*ask)(const ProbedFile& file, std::string_view head);  // for what else is read; may be null
};

constexpr Container kContainers[] = {
    {4, "ftypM4A"sv, kBuffer, 0, AskForSound},
    {4, "ftypM4B"sv, kBuffer, 0, AskForSound},
    {4, "ftyp"sv, kBuffer, 0, AskForFilm},
    {4, "moov"sv, kBuffer, 0, AskForFilm},
    {4, "mdat"sv, kBuffer, 0, AskForFilm},
    {4, "wide"sv, kBuffer, 0, AskForFilm},
    {8, "AVI "sv, kBuffer, 0, AskForChunks},
    {8, "WAVE"sv, 7 * kBuffer + 4096, 0, nullptr},
    {0, "\x1A\x45\xDF\xA3"sv, kBuffer, 0, AskByPlayingTime},
    {0, "FLV"sv, 2 * kBuffer, 0, AskByPlayingTime},
    {0, "\x30\x26\xB2\x75"sv, kBuffer, 0, AskByPlayingTime},
    {0, "\0\0\1\xBA"sv, kBuffer, 250000, AskByClock},
    {0, "\x47"sv, 8 * kBuffer, 250000, nullptr},                // transport stream
    {4, "\x47"sv, 8 * kBuffer, 250000 + kBuffer / 2, nullptr},  // the same with time stamps
    {0, "OggS"sv, kBuffer + 8192, 65307, nullptr},
    {0, "\xFF"sv, kBuffer, 128, nullptr},  // MPEG audio
    {0, "ID3"sv, kBuffer, 128, nullptr},
    {0, "\x0B\x77"sv, 2 * kBuffer, 0, nullptr},  // AC-3
};

}  // namespace

void ProbeReadsRequest(int descriptor, int64_t size) {
    const ProbedFile file{descriptor, std::min(size, kMostSize)};
    char bytes[kWindow];
    file.Ask(0, kBuffer);
    const std::string_view head = file.Read(0, bytes, sizeof bytes);
    for (const Container& container : kContainers) {
        if (head.size() < container.at || !head.substr(container.at).starts_with(container.mark)) continue;
        file.Ask(kBuffer, container.head - kBuffer);
        file.Ask(size - container.tail, container.tail);
        if (container.ask != nullptr) container.ask(file, head);
        return;
    }
}

}  // namespace koli
