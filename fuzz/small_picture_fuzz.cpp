// What a picture's child does with arbitrary bytes, the libraries that know pictures included.
#include <cstdlib>
#include <vector>

#include "tools/serve/maker/jpeg.h"
#include "tools/serve/maker/small_picture.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr int kSide = 160;
    std::vector<uint8_t> room(65536);
    room.resize(koli::serve::SmallPictureMake({data, data + size}, kSide, room));
    if (room.empty()) return 0;
    const koli::serve::Frame frame = koli::serve::JpegDecode(room, kSide);
    if (frame == nullptr || frame->width > kSide || frame->height > kSide) abort();
    return 0;
}
