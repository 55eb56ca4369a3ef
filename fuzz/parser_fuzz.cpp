// One parser that fills a record (KOLI_PARSER, declared in KOLI_HEADER), on arbitrary bytes.
#include KOLI_HEADER

#include "fuzz/memory_file.h"
#include "tests/fake_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    koli::test::fake = {};
    koli::MediaInfo record{};
    KOLI_PARSER(koli::test::MemoryFile(data, size).c_str(), &record, koli::test::Reading());
    return 0;
}
