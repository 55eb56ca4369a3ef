// The whole MP3 parse, with its tags and covers, on arbitrary bytes.
#include <cstdlib>
#include <cstring>

#include "audio/mp3.h"
#include "fuzz/memory_file.h"
#include "tests/fake_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const koli::test::Sandbox sandbox;
    koli::test::fake = {};
    const std::string path = koli::test::MemoryFile(data, size, sandbox.Path("a.mp3"));
    koli::MediaInfo record{};
    const int result = koli::Mp3MetadataParse(path.c_str(), &record, koli::test::Reading());
    if (result != 0 && (record.title[0] != '\0' || record.sample_rate != 0)) abort();
    for (const char* text :
         {record.title, record.artist, record.album, record.genre, record.composer, record.comment})
        if (strnlen(text, koli::kTextSize) == koli::kTextSize) abort();
    return 0;
}
