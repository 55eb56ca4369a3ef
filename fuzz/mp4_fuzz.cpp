// The MP4 reader with its covers, on arbitrary bytes.
#include "fuzz/memory_file.h"
#include "tests/fake_platform.h"
#include "video/metamedia.h"
#include "video/mp4.h"

/// The probe runs in a child and reads the file with a library.
int koli::MiscMediaInfoGet(const char*, MediaInfo*, FileReading&) {
    return -1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const koli::test::MemoryFolder folder;
    static const std::string path = folder.Link("a.mp4");
    koli::test::fake = {};
    koli::MediaInfo record{};
    koli::Mp4InfoFill(koli::test::MemoryFile(data, size, path).c_str(), &record, koli::test::Reading());
    return 0;
}
