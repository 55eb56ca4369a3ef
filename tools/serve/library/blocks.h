// A long row of plain values that grows without being copied.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace koli::serve {

/// Of values that need no destructor.  An index stays valid as it grows.
template <typename Value>
class Blocks {
  public:
    size_t size() const { return size_; }
    Value& operator[](size_t index) { return blocks_[index / kBlock][index % kBlock]; }
    const Value& operator[](size_t index) const { return blocks_[index / kBlock][index % kBlock]; }
    void push_back(const Value& value) {
        if (size_ == blocks_.size() * kBlock) blocks_.push_back(std::make_unique<Value[]>(kBlock));
        blocks_[size_ / kBlock][size_ % kBlock] = value;
        ++size_;
    }
    Value& back() { return (*this)[size_ - 1]; }

  private:
    static constexpr size_t kBlock = 1024;
    std::vector<std::unique_ptr<Value[]>> blocks_;
    size_t size_ = 0;
};

}  // namespace koli::serve
