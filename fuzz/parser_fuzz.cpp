// One parser that fills a record (KOLI_PARSER, declared in KOLI_HEADER) and may save a cover, on arbitrary
// bytes.
#include KOLI_HEADER

#include <cstdlib>
#include <cstring>

#include "fuzz/memory_file.h"
#include "tests/fake_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const koli::test::MemoryFolder folder;
    static const std::string path = folder.Link("a.x");
    koli::test::fake = {};
    koli::MediaInfo record{};
    KOLI_PARSER(koli::test::MemoryFile(data, size, path).c_str(), &record, koli::test::Reading());
    for (const char* text :
         {record.title, record.artist, record.album, record.genre, record.composer, record.comment})
        if (strnlen(text, koli::kTextSize) == koli::kTextSize) abort();
    return 0;
}
