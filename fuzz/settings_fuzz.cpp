// The readers of text files (settings, lists of lines, pid files) on arbitrary bytes.  The first line is the
// key.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "fuzz/memory_file.h"
#include "platform/kolisdk.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const std::string key = bytes.substr(0, bytes.find('\n')).c_str();
    const std::string path = koli::test::MemoryFile(data, size);
    char value[64];
    const int length = KLIBFileGetKeyValue(path.c_str(), key.c_str(), value, sizeof value, 0);
    const std::string text(value, strnlen(value, sizeof value));
    if (text.size() == sizeof value || text.find('\n') != std::string::npos) abort();
    if ((length < 0 && !text.empty()) || (length >= 0 && bytes.find(text) == std::string::npos)) abort();
    const bool is_whole = length >= 0 && static_cast<size_t>(length) == text.size();
    if (is_whole && BlKOLIFileCheckKeyValue(path.c_str(), key.c_str(), value, 0) != 1) abort();
    if (KLIBFileGetLine(path.c_str(), key.c_str(), value, sizeof value, KLIB_LINE_MATCH) > 0 &&
        strncmp(value, key.c_str(), std::min(key.size(), sizeof value - 1)) != 0)
        abort();
    if (KLIBReadPidFile(path.c_str()) < 0) abort();
    return 0;
}
