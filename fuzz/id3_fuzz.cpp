// The whole MP3 parse, with its tags and covers, on arbitrary bytes.
#include <cstdlib>
#include <cstring>

#include "audio/mp3.h"
#include "fuzz/memory_file.h"
#include "tests/fake_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const koli::test::MemoryFolder folder;
    static const std::string path = folder.Link("a.mp3");
    koli::test::fake = {};
    koli::MediaInfo record{};
    const int result = koli::Mp3MetadataParse(koli::test::MemoryFile(data, size, path).c_str(), &record,
                                              koli::test::Reading());
    if (result != 0 && (record.title[0] != '\0' || record.sample_rate != 0)) abort();
    for (const char* text :
         {record.title, record.artist, record.album, record.genre, record.composer, record.comment})
        if (strnlen(text, koli::kTextSize) == koli::kTextSize) abort();
    return 0;
}
