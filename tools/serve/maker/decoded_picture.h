// What the codec libraries make of a picture's file.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/serve/maker/frame.h"

namespace koli::serve {

/// A picture as it is stored, and how it is to be turned.
struct DecodedPicture {
    Frame frame;          // null: there is none
    int orientation = 1;  // 1 to 8, as cameras number them
};

/// Decodes a whole file, told by its first bytes, whatever its name says: JPEG, PNG, GIF (the first picture),
/// BMP, TIFF, PSD, icons (the largest).  A JPEG may come smaller, but with `side` pixels in its longer side.
/// Of a cut JPEG what there is of it is there, of other damaged pictures mostly nothing.  Not for a process
/// that has something to lose.
DecodedPicture PictureDecode(std::vector<uint8_t> file, int side);

/// In a process that is going to fork those that decode: lets the libraries make their constant tables, no
/// data involved.
void PictureDecodeWarmUp();

}  // namespace koli::serve
