// The AAC tool's reader on arbitrary bytes: no frame is counted twice, none beyond the file.
#include <cstdlib>

#include "fuzz/memory_file.h"
#include "tests/fake_platform.h"
#include "tools/aac/adts_stream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    koli::test::fake = {};
    koli::AdtsFigures figures;
    if (!koli::AdtsRead(koli::test::MemoryFile(data, size).c_str(), &figures)) return 0;
    if (figures.frames < 1 || figures.bytes > static_cast<int64_t>(size) ||
        figures.bytes < 7 * figures.frames)
        abort();
    const int64_t least_ticks = figures.frames * 1024 * (koli::AdtsFigures::kTicksPerSecond / 96000);
    if (figures.ticks < least_ticks || koli::AdtsBitrate(figures) < 0 || koli::AdtsSeconds(figures) <= 0)
        abort();
    return 0;
}
