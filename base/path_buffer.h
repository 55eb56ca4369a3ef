// A path that grows and shrinks by one component at a time.
#pragma once

#include <cstddef>

#include "base/media_info.h"

namespace koli {

/// One path of at most 4095 bytes.  A walk of any depth needs only one.
class PathBuffer {
  public:
    /// Takes the first path; one that does not fit is taken as "", which names nothing.
    explicit PathBuffer(const char* path);

    const char* text() const { return text_; }
    size_t length() const { return length_; }

    /// Adds "/NAME", "NAME" behind a '/'.  False when that does not fit: the path is then unchanged, never
    /// cut.
    [[nodiscard]] bool Append(const char* name);

    /// Goes back to a length that it had.
    void CutTo(size_t length);

  private:
    char text_[kPathSize];
    size_t length_ = 0;
};

}  // namespace koli
