#include "fuzz/memory_file.h"
#include "tests/fake_platform.h"
#include "video/metavideo.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    koli::test::fake = {};
    koli::MediaInfo record{};
    koli::MpegVideoInfoGet(koli::test::MemoryFile(data, size).c_str(), &record);
    return 0;
}
