#include "compat/aiff_file.h"

#include <cmath>
#include <limits>
#include <new>

#include "base/regular_file.h"
#include "compat/big_endian_fields.h"

struct AIFF_File {
    uint64_t sample_frames;
    int channels;          // 0 to 65535
    double sampling_rate;  // Hz
    int bits_per_sample;   // 0 to 65535
};

namespace koli::compat {
namespace {

constexpr int kMaxChunks = 4096;     // of one file that are looked at
constexpr size_t kFormHeader = 12;   // "FORM", length, form type
constexpr size_t kChunkHeader = 8;   // name, length
constexpr size_t kCommSize = 18;     // the part that AIFF and AIFF-C share
constexpr size_t kCommTypeSize = 4;  // AIFF-C's compression type behind it
constexpr uint64_t kIma4FramesPerPacket = 64;

/// IEEE 754 extended precision: 1 bit sign, 15 bits exponent (bias 16383), 64 bits mantissa with its integer
/// bit.
double ExtendedToDouble(const uint8_t* bytes) {
    const int exponent = LoadBe16(bytes) & 0x7FFF;
    const uint64_t mantissa = LoadBe64(bytes + 2);
    double value;
    if (exponent == 0x7FFF)
        value = mantissa << 1 == 0 ? std::numeric_limits<double>::infinity()
                                   : std::numeric_limits<double>::quiet_NaN();
    else
        value = std::ldexp(static_cast<double>(mantissa), (exponent == 0 ? 1 : exponent) - 16383 - 63);
    return (bytes[0] & 0x80) != 0 ? -value : value;
}

AIFF_File DecodeComm(const uint8_t* comm, bool is_ima4) {
    AIFF_File file;
    file.channels = LoadBe16(comm);
    file.sample_frames = LoadBe32(comm + 2) * (is_ima4 ? kIma4FramesPerPacket : uint64_t{1});
    file.bits_per_sample = LoadBe16(comm + 6);
    file.sampling_rate = ExtendedToDouble(comm + 8);
    return file;
}

/// Goes from chunk to chunk up to the COMM chunk.  False when there is no readable one.
bool ReadComm(const MediaFile& media, AIFF_File* file) {
    uint8_t form[kFormHeader];
    if (media.Read(0, form, sizeof form) != sizeof form || LoadBe32(form) != FourCc("FORM")) return false;
    const bool is_aifc = LoadBe32(form + 8) == FourCc("AIFC");
    if (!is_aifc && LoadBe32(form + 8) != FourCc("AIFF")) return false;

    int64_t position = kFormHeader;
    for (int chunks = 0; chunks < kMaxChunks; ++chunks) {
        uint8_t chunk[kChunkHeader + kCommSize + kCommTypeSize];
        const size_t got = media.Read(position, chunk, sizeof chunk);
        if (got < kChunkHeader) return false;
        const uint32_t length = LoadBe32(chunk + 4);
        if (LoadBe32(chunk) == FourCc("COMM")) {
            if (length < kCommSize || got < kChunkHeader + kCommSize) return false;
            const uint8_t* comm = chunk + kChunkHeader;
            const bool has_type = is_aifc && length >= kCommSize + kCommTypeSize && got == sizeof chunk;
            *file = DecodeComm(comm, has_type && LoadBe32(comm + kCommSize) == FourCc("ima4"));
            return true;
        }
        position += static_cast<int64_t>(kChunkHeader) + length + (length & 1);
    }
    return false;
}

}  // namespace
}  // namespace koli::compat

extern "C" {

AIFF_Ref AIFF_OpenFile(const char* path, int flags, koli::FileReading& reading) {
    koli::MediaFile media;
    AIFF_File file{};
    if (path == nullptr || flags != F_RDONLY || !media.Open(path, reading) ||
        !koli::compat::ReadComm(media, &file))
        return nullptr;
    return new (std::nothrow) AIFF_File(file);
}

int AIFF_GetAudioFormat(AIFF_Ref file, uint64_t* sample_frames, int* channels, double* sampling_rate,
                        int* bits_per_sample, int* segment_size) {
    if (file == nullptr) return -1;
    if (sample_frames != nullptr) *sample_frames = file->sample_frames;
    if (channels != nullptr) *channels = file->channels;
    if (sampling_rate != nullptr) *sampling_rate = file->sampling_rate;
    if (bits_per_sample != nullptr) *bits_per_sample = file->bits_per_sample;
    if (segment_size != nullptr) *segment_size = (file->bits_per_sample + 7) / 8;
    return 1;
}

void AIFF_CloseFile(AIFF_Ref file) {
    delete file;
}

}  // extern "C"
