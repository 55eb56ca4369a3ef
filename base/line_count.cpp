#include "base/line_count.h"

#include <algorithm>

#include "base/regular_file.h"

namespace koli {

int64_t LineCount(int fd, int64_t end) {
    char block[65536];
    int64_t lines = 0;
    char last = '\n';
    ssize_t length = 0;
    for (int64_t at = 0; at < end; at += length) {
        length = ReadAt(fd, at, block, static_cast<size_t>(std::min<int64_t>(sizeof block, end - at)));
        if (length < 0) return -1;
        if (length == 0) break;
        lines += std::count(block, block + length, '\n');
        last = block[length - 1];
    }
    return last == '\n' ? lines : lines + 1;
}

}  // namespace koli
