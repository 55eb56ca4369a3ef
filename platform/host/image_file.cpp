#include <cerrno>

#include "base/reading.h"
#include "base/regular_file.h"
#include "platform/host/image_size.h"
#include "platform/koliindex.h"

namespace {

class FileSource : public koli::ByteSource {
  public:
    explicit FileSource(int file) : file_(file) {}
    size_t ReadAt(uint64_t offset, void* buffer, size_t count) override {
        const ssize_t got = koli::ReadAt(file_, static_cast<int64_t>(offset), buffer, count);
        if (got < 0) koli::ReadingFailed(errno);
        return got > 0 ? static_cast<size_t>(got) : 0;
    }

  private:
    const int file_;
};

}  // namespace

extern "C" {

int KOLIIndexImgResRead(int file, int* width, int* height) {
    FileSource source(file);
    koli::ImageSize size;
    if (!koli::ReadImageSize(source, &size)) return -1;
    *width = size.width;
    *height = size.height;
    return 0;
}

int KOLIIndexImgResGet(const char* path, int* width, int* height) {
    if (path == nullptr || width == nullptr || height == nullptr) return -1;
    koli::MediaFile file;
    return file.Open(path) ? KOLIIndexImgResRead(file.descriptor(), width, height) : -1;
}

}  // extern "C"
