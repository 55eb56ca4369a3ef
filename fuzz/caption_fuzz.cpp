// Caption and flag files of albums and pictures, on arbitrary bytes: the first line, cut.
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "fuzz/memory_file.h"
#include "photo/caption.h"
#include "tests/fake_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const koli::test::MemoryFolder folder;
    static const std::string caption = folder.MakeDir("@eaDir/a.jpg") + "/" + koli::kTitleStream;
    koli::test::fake = {};
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    std::ofstream(caption, std::ios::binary) << bytes;
    char text[koli::kCaptionSize] = "untouched";
    koli::FileReading reading("");
    koli::CaptionHold hold(reading);
    const int result =
        koli::CaptionRead(folder.Path("a.jpg").c_str(), koli::kTitleStream, text, sizeof text, hold);
    const std::string line = bytes.substr(0, std::min(bytes.find('\n'), bytes.size() - 1) + 1);
    const std::string expected = line.substr(0, sizeof text - 1).c_str();
    if (result != (expected.empty() || expected == "\n" ? -1 : 0)) abort();
    if (result == 0 && expected != text) abort();
    return 0;
}
