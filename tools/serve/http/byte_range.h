// Which part of a file a client asks for.
#pragma once

#include <cstdint>
#include <string_view>

namespace koli::serve {

struct ByteRange {
    enum Kind {
        kWhole,  // no range, several, or one that cannot be understood: all of the file is sent
        kPart,   // `length` bytes from `first` on; there is at least one
        kNone    // nothing of the file lies in it
    } kind = kWhole;
    int64_t first = 0;
    int64_t length = 0;
};

/// The range of a Range header's value in a file of `size` bytes.
ByteRange RangeOf(std::string_view header, int64_t size);

}  // namespace koli::serve
