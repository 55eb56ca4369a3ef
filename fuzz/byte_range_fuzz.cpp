// A Range header: the part lies in the file, however large both are.  The first bytes are the file's size.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "tools/serve/http/byte_range.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using koli::serve::ByteRange;
    int64_t file = 0;
    if (size < sizeof file) return 0;
    memcpy(&file, data, sizeof file);
    file &= INT64_MAX;
    const std::string_view header(reinterpret_cast<const char*>(data) + sizeof file, size - sizeof file);
    const ByteRange range = koli::serve::RangeOf(header, file);
    if (range.kind == ByteRange::kPart &&
        (range.first < 0 || range.length < 1 || range.first >= file || range.length > file - range.first))
        abort();
    return 0;
}
