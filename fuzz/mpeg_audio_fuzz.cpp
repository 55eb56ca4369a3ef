// The fast searches for frames and variable-bit-rate headers against the byte-wise ones.
#include <cstdlib>

#include "audio/vbr_header.h"
#include "fuzz/memory_file.h"
#include "tests/fake_platform.h"
#include "tests/mpeg_model.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    koli::test::fake.log.clear();
    // The first byte stretches the file, so that it spans several buffers.
    std::string bytes(reinterpret_cast<const char*>(data), size);
    if (size > 0 && data[0] % 8 != 0) bytes.insert(size / 2, data[0] * 80U, size % 2 != 0 ? '\0' : 'a');
    const std::string path = koli::test::MemoryFile(bytes.data(), bytes.size());
    koli::CachedFileReader reader{}, model{};
    if (koli::CachedFileOpen(&reader, path.c_str(), koli::LogSite("fuzz")) != 0) abort();
    if (koli::CachedFileOpen(&model, path.c_str(), koli::LogSite("fuzz")) != 0) abort();

    koli::MpegHeaderInfo header{};
    const int64_t frame = koli::MpegFirstFrame(&reader, 0, &header) == 0 ? header.position : -1;
    if (frame != koli::test::ModelFirstFrame(&model, bytes, 0)) abort();
    if (frame >= 0 && header.bitrate != 0) {
        koli::XingHeaderRead(&reader, 0, &header);
        koli::VbriHeaderRead(&reader, 0, &header);
        if (reader.vbr_scan.xing != koli::test::ModelMark(&model, bytes, "Xing", 0)) abort();
        if (reader.vbr_scan.vbri != koli::test::ModelMark(&model, bytes, "VBRI", 0)) abort();
    }
    koli::CachedFileClose(&reader);
    koli::CachedFileClose(&model);
    return 0;
}
