#include "audio/flac.h"
#include "fuzz/memory_file.h"
#include "tests/fake_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    koli::test::fake = {};
    koli::MediaInfo record{};
    koli::FlacMetadataRead(koli::test::MemoryFile(data, size).c_str(), &record);
    return 0;
}
