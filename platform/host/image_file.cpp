#include <cerrno>

#include "base/regular_file.h"
#include "platform/host/image_size.h"
#include "platform/koliindex.h"

namespace {

class FileSource : public koli::ByteSource {
  public:
    explicit FileSource(int file) : file_(file) {}
    size_t ReadAt(uint64_t offset, void* buffer, size_t count) override {
        const ssize_t got = koli::ReadAt(file_, static_cast<int64_t>(offset), buffer, count);
        if (got < 0) error_ = errno;
        return got > 0 ? static_cast<size_t>(got) : 0;
    }
    int error() const { return error_; }

  private:
    const int file_;
    int error_ = 0;  // errno of a read that failed
};

}  // namespace

extern "C" {

int KOLIIndexImgResRead(int file, int* width, int* height) {
    FileSource source(file);
    koli::ImageSize size;
    const bool is_read = koli::ReadImageSize(source, &size);
    errno = source.error();
    if (!is_read) return -1;
    *width = size.width;
    *height = size.height;
    return 0;
}

int KOLIIndexImgResGet(const char* path, int* width, int* height) {
    if (path == nullptr || width == nullptr || height == nullptr) return -1;
    const koli::RegularFile file(path);
    return file.ok() ? KOLIIndexImgResRead(file.descriptor(), width, height) : -1;
}

}  // extern "C"
