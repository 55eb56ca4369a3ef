// The FLAC reader on arbitrary bytes: it finds what libFLAC finds that reads the file itself.
#include <FLAC/metadata.h>

#include <cstdlib>

#include "audio/flac.h"
#include "fuzz/memory_file.h"
#include "tests/fake_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    koli::test::fake = {};
    // The first byte puts a hole in the middle.
    const std::string path = koli::test::MemoryFile(data, size);
    if (size > 1) koli::test::InsertHole(size / 2, data[0] % 8 * 4096);
    koli::MediaInfo record{};
    const int result = koli::FlacMetadataRead(path.c_str(), &record, koli::test::Reading());
    FLAC__StreamMetadata info, *tags = nullptr;
    const bool is_read = FLAC__metadata_get_streaminfo(path.c_str(), &info) != 0 &&
                         FLAC__metadata_get_tags(path.c_str(), &tags) != 0;
    if (is_read != (result == 0) || (is_read && record.sample_rate != info.data.stream_info.sample_rate))
        abort();
    if (tags != nullptr) FLAC__metadata_object_delete(tags);
    return 0;
}
