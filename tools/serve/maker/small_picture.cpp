#include "tools/serve/maker/small_picture.h"

#include <utility>

#include "tools/serve/maker/decoded_picture.h"
#include "tools/serve/maker/frame.h"
#include "tools/serve/maker/jpeg.h"

namespace koli::serve {

size_t SmallPictureMake(std::vector<uint8_t> file, int side, std::span<uint8_t> room) {
    DecodedPicture picture = PictureDecode(std::move(file), side);
    if (picture.frame == nullptr) return 0;
    const Frame small = Shrunk(*picture.frame, side);
    picture.frame.reset();
    if (small == nullptr) return 0;
    const Frame upright = Upright(*small, picture.orientation);
    return upright != nullptr ? JpegEncode(*upright, room) : 0;
}

}  // namespace koli::serve
