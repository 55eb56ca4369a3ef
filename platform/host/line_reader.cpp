#include "platform/host/line_reader.h"

#include <algorithm>
#include <cstring>

namespace koli {

/// Moves the unread bytes to the front and fills the rest of the buffer.  False when nothing was added.
bool LineReader::Refill() {
    memmove(buffer_, buffer_ + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
    const auto room = static_cast<int64_t>(sizeof buffer_ - end_);
    const auto wanted = static_cast<size_t>(std::min(room, file_.size() - offset_));
    if (wanted == 0 || failed_) return false;
    const ssize_t got = ReadAt(file_.descriptor(), offset_, buffer_ + end_, wanted);
    failed_ = got < 0;
    if (got <= 0) return false;
    offset_ += got;
    end_ += static_cast<size_t>(got);
    return true;
}

LineReader::Line LineReader::Take(size_t length, size_t behind, bool whole) {
    const Line line{{buffer_ + begin_, length}, whole};
    begin_ += length + behind;
    return line;
}

bool LineReader::Next(Line* line) {
    for (;;) {
        const size_t unread = end_ - begin_;
        const void* newline = memchr(buffer_ + begin_, '\n', unread);
        if (newline != nullptr) {
            *line =
                Take(static_cast<size_t>(static_cast<const char*>(newline) - (buffer_ + begin_)), 1, true);
            if (!skipping_) return true;
            skipping_ = false;
            continue;
        }
        if (skipping_) begin_ = end_;
        if (Refill()) continue;
        if (failed_ || begin_ == end_) return false;
        skipping_ = end_ == sizeof buffer_ && offset_ < file_.size();
        *line = Take(end_ - begin_, 0, !skipping_);
        return true;
    }
}

}  // namespace koli
