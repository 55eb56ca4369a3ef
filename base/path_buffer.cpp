#include "base/path_buffer.h"

#include <cstring>

namespace koli {

PathBuffer::PathBuffer(const char* path) {
    const size_t length = strnlen(path, sizeof text_);
    if (length < sizeof text_) length_ = length;
    memcpy(text_, path, length_);
    text_[length_] = '\0';
}

bool PathBuffer::Append(const char* name) {
    const size_t slash = length_ > 0 && text_[length_ - 1] == '/' ? 0 : 1;
    const size_t name_length = strlen(name);
    if (length_ + slash + name_length >= sizeof text_) return false;
    if (slash != 0) text_[length_] = '/';
    memcpy(text_ + length_ + slash, name, name_length + 1);
    length_ += slash + name_length;
    return true;
}

void PathBuffer::CutTo(size_t length) {
    length_ = length;
    text_[length_] = '\0';
}

}  // namespace koli
