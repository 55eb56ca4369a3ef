// Files of which no small picture can be made: they are not tried at each look at their page.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <unordered_set>

namespace koli::serve {

/// Remembers the latest in a bounded number of bytes.
class FailedPictures {
  public:
    void Add(const std::string& file_key) {
        if (file_key.size() > kMaxBytes || !keys_.insert(file_key).second) return;
        order_.push_back(file_key);
        bytes_ += file_key.size();
        for (; bytes_ > kMaxBytes; order_.pop_front()) {
            bytes_ -= order_.front().size();
            keys_.erase(order_.front());
        }
    }
    bool Has(const std::string& file_key) const { return keys_.contains(file_key); }

  private:
    static constexpr size_t kMaxBytes = 256U << 10;
    std::unordered_set<std::string> keys_;
    std::deque<std::string> order_;
    size_t bytes_ = 0;
};

}  // namespace koli::serve
