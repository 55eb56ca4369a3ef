// The address of a request: whatever is taken stands for one place, below "/".
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "tools/serve/http/target.h"

namespace {

std::string Encoded(const std::string& text) {
    std::string encoded;
    for (const char byte : text) {
        encoded += '%';
        encoded += "0123456789abcdef"[static_cast<uint8_t>(byte) >> 4];
        encoded += "0123456789ABCDEF"[byte & 15];
    }
    return encoded;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto decoded = koli::serve::PercentDecoded(text);
    if (decoded && koli::serve::PercentDecoded(Encoded(*decoded)) != decoded) abort();
    const auto segments = koli::serve::SegmentsOf(text);
    if (!segments) return 0;
    std::string path, same;
    for (const std::string& segment : *segments) {
        if (segment.empty() || segment == "." || segment == ".." || segment.find('/') != std::string::npos)
            abort();
        path += '/' + segment;
        same += '/' + Encoded(segment);
    }
    if (path.size() >= PATH_MAX || path.find('\0') != std::string::npos) abort();
    if (koli::serve::SegmentsOf(same.empty() ? "/" : same) != segments) abort();
    return 0;
}
