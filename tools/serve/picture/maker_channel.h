// Between the server and the process that has small pictures made: orders and answers on a socket, the
// pictures themselves in memory that both share.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/unique_fd.h"

namespace koli::serve {

/// Where the child at work for one order leaves its picture.  A whole number of pages, on a page's boundary.
struct PictureSlot {
    static constexpr size_t kBytes = (1U << 20) - sizeof(uint32_t);  // of the largest small picture
    uint32_t size;  // 0 = none was made; not to be believed before it is compared with kBytes
    uint8_t bytes[kBytes];
};
static_assert(sizeof(PictureSlot) == 1U << 20);

/// Slots in a memory file.
class PictureSlots {
  public:
    /// New ones.
    explicit PictureSlots(size_t count);
    /// Those of such a file, which it takes over.
    explicit PictureSlots(UniqueFd file);
    ~PictureSlots();
    PictureSlots(const PictureSlots&) = delete;
    PictureSlots& operator=(const PictureSlots&) = delete;

    /// False, with errno set by the constructor, when there is no memory, or the file holds no slots.
    bool valid() const { return slots_ != nullptr; }
    int file() const { return file_.get(); }
    size_t count() const { return count_; }
    PictureSlot& operator[](size_t index) const { return slots_[index]; }

    /// Whether the children that are forked from here on get this slot, or, without an index, any of them.
    /// False with errno set.
    bool ShareWithChildren(size_t index, bool is_shared) const;
    bool HideFromChildren() const;

  private:
    void Map();

    UniqueFd file_;
    PictureSlot* slots_ = nullptr;
    size_t count_ = 0;
};

/// One picture to be made.  The file goes with it as a descriptor.
struct PictureOrder {
    uint32_t slot;  // that is free
    int32_t side;   // pixels of the box that the picture must fit in
};

/// What became of an order.
struct PictureAnswer {
    enum Result : int32_t {
        kMade,
        kNoPicture,  // that anybody could make, however often it is tried
        kNotNow      // something is lacking at the moment: a process, memory, a disk that answers
    };
    static constexpr uint32_t kReady = ~0U;  // as slot: the maker takes orders from here on
    uint32_t slot;
    Result result;
};

/// Exit statuses of the maker.
struct MakerExit {
    enum Status : int { kDone, kFailed, kUnguarded /* this kernel has nothing that guards a child */ };
};

// Each is false when the other end is gone, or something else has failed, with errno set (0: gone).

bool OrderSend(int socket, const PictureOrder& order, int file);
/// `file` stays invalid when the order came without one.
bool OrderReceive(int socket, PictureOrder* order, UniqueFd* file);
bool AnswerSend(int socket, const PictureAnswer& answer);
bool AnswerReceive(int socket, PictureAnswer* answer);

}  // namespace koli::serve
