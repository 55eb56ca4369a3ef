// Any bytes as a picture: no size but 1 to 2^31 - 1, no read beyond the bound.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/host/image_size.h"

namespace {

class MemorySource : public koli::ByteSource {
  public:
    MemorySource(const uint8_t* bytes, size_t size) : bytes_(bytes), size_(size) {}
    size_t ReadAt(uint64_t offset, void* buffer, size_t count) override {
        if (++reads_ > koli::HeaderReader::kRefillsMax) abort();
        if (offset >= size_) return 0;
        const size_t got = std::min<uint64_t>(count, size_ - offset);
        memcpy(buffer, bytes_ + offset, got);
        return got;
    }

  private:
    const uint8_t* bytes_;
    size_t size_;
    int reads_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    MemorySource source(bytes, size);
    koli::ImageSize picture{};
    const bool found = koli::ReadImageSize(source, &picture);
    if (found != (picture.width > 0) || found != (picture.height > 0)) abort();
    return 0;
}
