// How many lines a file has.
#pragma once

#include <cstdint>

namespace koli {

/// Lines that begin before the offset `end`; a last one without its newline counts.  -1 when the file could
/// not be read.
int64_t LineCount(int fd, int64_t end);

}  // namespace koli
