// The EXIF values of the picture that was read last.  Both stores want them, one directly after the other.
#pragma once

#include <sys/stat.h>

#include <cstddef>

namespace koli {

class ExifMemory {
  public:
    static constexpr size_t kRenderedSize = 128;  // bytes of a value as text, terminator included

    struct Value {
        int tag;
        char text[kRenderedSize];
    };

    /// Begins with the picture whose state before it is read is `file`.
    void Begin(const struct stat& file);

    /// The next value in the order of the file.
    void Add(const Value& value);

    /// What was read is not all.
    void Forget() { is_usable_ = false; }

    /// Whether `file` is the picture whose values are remembered, unchanged since they were read.  A picture
    /// is asked for twice at most: a yes is given once.
    bool Recall(const struct stat& file);

    const Value* begin() const { return values_; }
    const Value* end() const { return values_ + count_; }

  private:
    static constexpr size_t kMaxValues = 32;  // a camera writes eight; what has more is read again

    Value values_[kMaxValues] = {};
    size_t count_ = 0;
    bool is_usable_ = false;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    off_t size_ = 0;
    timespec changed_ = {};
};

}  // namespace koli
