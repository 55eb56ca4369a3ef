#include <cerrno>

#include "base/reading.h"
#include "platform/host/image_size.h"
#include "platform/host/regular_file.h"
#include "platform/koliindex.h"

namespace {

class FileSource : public koli::ByteSource {
  public:
    explicit FileSource(const koli::RegularFile& file) : file_(file) {}
    size_t ReadAt(uint64_t offset, void* buffer, size_t count) override {
        const ssize_t got = file_.ReadAt(offset, buffer, count);
        if (got < 0) koli::ReadingFailed(errno);
        return got > 0 ? static_cast<size_t>(got) : 0;
    }

  private:
    const koli::RegularFile& file_;
};

}  // namespace

extern "C" int KOLIIndexImgResGet(const char* path, int* width, int* height) {
    if (path == nullptr || width == nullptr || height == nullptr) return -1;
    koli::ReadingOpen(path);
    errno = 0;
    const koli::RegularFile file(path);
    if (!file.ok()) {
        koli::ReadingFailed(errno);
        return -1;
    }
    FileSource source(file);
    koli::ImageSize size;
    if (!koli::ReadImageSize(source, &size)) return -1;
    *width = size.width;
    *height = size.height;
    return 0;
}
