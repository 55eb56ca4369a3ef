// Small pictures that were made before, in a folder of this user's.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "base/unique_fd.h"

namespace koli::serve {

/// A bounded number of bytes on the disk, of which the longest unused go first.  Each file is whole or not
/// there, and begins with its key: what somebody else put into the folder is no picture.  Several processes
/// may use one folder.  Find and Keep are for one thread.
class PictureCache {
  public:
    PictureCache() = default;
    ~PictureCache() { Close(); }
    PictureCache(const PictureCache&) = delete;
    PictureCache& operator=(const PictureCache&) = delete;

    /// Opens `folder`, which is made, with those above it, if need be, and begins to keep it below `bound`
    /// bytes in a thread of its own.  False when it is not this user's alone to write to, or cannot be used;
    /// `error` tells why.  Until it is open nothing is found or kept.
    bool Open(const std::string& folder, uint64_t bound, std::string* error);
    /// Ends the thread.
    void Close();

    /// The picture of `key`, which counts as used now.
    std::optional<std::string> Find(std::string_view key);
    /// Keeps it, if the disk takes it.
    void Keep(std::string_view key, std::string_view picture);

  private:
    void Tidy();
    uint64_t Trim() const;

    UniqueFd folder_;
    uint64_t bound_ = 0;
    std::mutex mutex_;
    std::condition_variable wake_;
    uint64_t bytes_ = 0;       // in the folder, as far as is known
    uint64_t trim_above_ = 0;  // 0: nothing is known yet
    bool is_closing_ = false;
    std::thread tidier_;
};

}  // namespace koli::serve
