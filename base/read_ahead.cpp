#include "base/read_ahead.h"

#include <fcntl.h>

#include <algorithm>

namespace koli {

/// Some file systems (FUSE) bring no more than 128 KB at a call: for them the second half of each request is
/// named again, which costs all others nothing.
void ReadAheadRequest(int file, int64_t from, int64_t end) {
    constexpr int64_t kHalf = 1 << 17;
    for (bool is_second = false; from < end; from += kHalf, is_second = !is_second)
        posix_fadvise(file, from, std::min(is_second ? kHalf : 2 * kHalf, end - from), POSIX_FADV_WILLNEED);
}

void ReadAhead::Expect(int64_t from, int64_t end) {
    if (end == expected_end_) return;
    expected_end_ = end;
    requested_ = from;
}

int64_t ReadAhead::Worth(int64_t offset, int64_t length) {
    const bool goes_on = offset <= next_ && offset + length >= next_;
    if (!goes_on) requested_ = offset;
    in_order_ = goes_on ? in_order_ + length : 0;
    next_ = offset + length;
    if (offset < expected_end_) return std::min(expected_end_ - offset, kMost);
    return std::min(in_order_ / 4, kMostGuessed);
}

void ReadAhead::BeforeRead(int file, int64_t offset, int64_t length) {
    const int64_t worth = Worth(offset, length);
    if (requested_ - offset > worth / 2) return;
    const int64_t end = offset + worth;
    if (end - std::max(offset, requested_) < length) return;  // the read itself asks for that
    ReadAheadRequest(file, std::max(offset, requested_), end);
    requested_ = end;
}

}  // namespace koli
