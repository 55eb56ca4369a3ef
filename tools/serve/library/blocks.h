// A long row of plain values that grows without being copied, and that shares what it has in common with
// another.
#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <memory>
#include <vector>

namespace koli::serve {

/// Of values that need no destructor.  An index stays valid as it grows.
template <typename Value>
class Blocks {
  public:
    /// Has the row, which is still empty, share the blocks that turn out to be the same as those of an
    /// earlier one, until Finish.  Both live until then, and no value of either is changed any more.
    void ShareWith(const Blocks& earlier) { earlier_ = &earlier; }
    void Finish() { earlier_ = nullptr; }

    size_t size() const { return size_; }
    Value& operator[](size_t index) { return blocks_[index / kBlock][index % kBlock]; }
    const Value& operator[](size_t index) const { return blocks_[index / kBlock][index % kBlock]; }
    void push_back(const Value& value) {
        if (size_ == blocks_.size() * kBlock) blocks_.push_back(std::make_shared<Value[]>(kBlock));
        blocks_[size_ / kBlock][size_ % kBlock] = value;
        ++size_;
        if constexpr (std::equality_comparable<Value>)
            if (size_ % kBlock == 0 && earlier_ != nullptr) ShareLast();
    }
    Value& back() { return (*this)[size_ - 1]; }

  private:
    static constexpr size_t kBlock = 1024;

    void ShareLast() {
        const size_t last = blocks_.size() - 1;
        if (earlier_->size_ < size_) return;
        const auto& block = earlier_->blocks_[last];
        if (std::equal(block.get(), block.get() + kBlock, blocks_[last].get())) blocks_[last] = block;
    }

    std::vector<std::shared_ptr<Value[]>> blocks_;
    const Blocks* earlier_ = nullptr;
    size_t size_ = 0;
};

}  // namespace koli::serve
