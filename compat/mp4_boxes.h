// The boxes of an MP4 file, read one by one where they lie.
//
// ISO/IEC 14496-12 clause 4.2, big-endian:
//
//     offset size
//          0    4  length of the whole box; 0 = to the end of what holds it, 1 = the long form
//          4    4  type
//          8    8  long form only: length
//          8 / 16  what it holds: fields, boxes, or fields followed by boxes
#pragma once

#include "base/regular_file.h"
#include "compat/big_endian_fields.h"

namespace koli::compat {

/// One box; file offsets.  It never runs over what holds it.
struct Box {
    uint32_t type;
    int64_t payload;  // first byte behind the header
    int64_t end;      // first byte behind the box
};

/// A place in a row of boxes.
struct BoxCursor {
    int64_t position;
    int64_t end;
};

inline constexpr size_t kBoxHeaderSize = 16;  // bytes, of the long form

/// The box at the cursor, which moves behind it, by the first `got` bytes of its header, all of them unless
/// the file ends before.  False at the end of the row, and for a box that is shorter than its own header.
bool BoxHeaderParse(const uint8_t* header, size_t got, BoxCursor* cursor, Box* box);

/// Reads boxes of one file.  Nothing here recurses: a caller goes down as many levels as it has a use for,
/// and what it does not ask for is not looked at.
class BoxReader {
  public:
    bool Open(const char* path, FileReading& reading) { return file_.Open(path, reading); }
    const MediaFile& file() const { return file_; }

    /// The box at the cursor, which moves behind it.  False at the end of the row, and for a damaged box.
    bool Next(BoxCursor* cursor, Box* box);

    /// The first box of `type` in a row.  False when there is none, and for a damaged box in front of it.
    bool Find(BoxCursor row, uint32_t type, Box* box);

    /// What follows the first `skip` bytes of a box's payload, taken as a row of boxes.
    static BoxCursor Inside(const Box& box, int64_t skip = 0);

    /// Copies `count` (at most 64) bytes from `skip` bytes into a box's payload; false when it is too short.
    bool Fields(const Box& box, int64_t skip, uint8_t* bytes, size_t count);

    /// True once a box was shorter than its own header, or there were too many boxes: the row in which it
    /// stands has no end that could be relied on, and no more is read.
    bool is_damaged() const { return is_damaged_; }

    /// Takes back a damage in something that can be done without, so that what lies beside it can be read.
    void Forgive() { is_damaged_ = false; }

  private:
    static constexpr int kMaxBoxes = 65536;      // of one file that are looked at
    static constexpr size_t kWindowSize = 4096;  // bytes per read

    size_t ReadSmall(int64_t offset, uint8_t* bytes, size_t count);

    MediaFile file_;
    int boxes_ = 0;
    bool is_damaged_ = false;
    int64_t window_start_ = 0;
    size_t window_size_ = 0;
    uint8_t window_[kWindowSize];  // the file's bytes from window_start_ on
};

}  // namespace koli::compat
