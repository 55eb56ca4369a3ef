// The lines of a text file of any size, read with one fixed buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/regular_file.h"

namespace koli {

class LineReader {
  public:
    /// Bytes of a line that are kept: room for the longest path four times over.
    static constexpr size_t kLineMax = 16384;

    struct Line {
        std::string_view text;  // without its newline; valid until the next call of Next
        bool whole;             // false: the line did not fit, `text` is its beginning
    };

    /// Reads what `path` holds now; what is appended meanwhile is left out, so that no writer can keep the
    /// reader busy.
    explicit LineReader(const char* path) : file_(path), failed_(!file_.ok()) {}

    /// False when the file could not be opened or a read failed.
    bool ok() const { return !failed_; }
    int64_t file_size() const { return file_.size(); }
    /// Gives the next line, a last one without a newline included.  False at the end or on failure.
    bool Next(Line* line);

  private:
    bool Refill();
    Line Take(size_t length, size_t behind, bool whole);

    RegularFile file_;
    bool failed_;
    bool skipping_ = false;  // the rest of an overlong line is still to be passed over
    int64_t offset_ = 0;     // of the next read
    size_t begin_ = 0;       // unread bytes of the buffer: begin_ to end_
    size_t end_ = 0;
    char buffer_[kLineMax];
};

}  // namespace koli
