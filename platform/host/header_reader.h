// Numbers at any offset of an untrusted file, in a bounded number of small reads.
#pragma once

#include <cstddef>
#include <cstdint>

namespace koli {

/// Where the bytes come from: a file, or a block of memory.
class ByteSource {
  public:
    virtual ~ByteSource() = default;
    /// Copies up to `count` bytes at `offset`; returns how many there were.
    virtual size_t ReadAt(uint64_t offset, void* buffer, size_t count) = 0;
};

/// Numbers come out of one small window that is refilled where the next number lies.  A number that is not
/// wholly there is 0 and clears `ok` for good; so does the read after kRefillsMax refills, which ends every
/// loop over a damaged file.
class HeaderReader {
  public:
    static constexpr size_t kWindow = 512;   // bytes of one read: a picture's header mostly fits
    static constexpr int kRefillsMax = 512;  // two thirds more than a picture with 300 full segments needs
    static constexpr uint64_t kOffsetMax = uint64_t{1}
                                           << 62;  // callers may add small numbers without a check

    explicit HeaderReader(ByteSource& source) : source_(source) {}

    bool ok() const { return ok_; }
    /// The unsigned number of `width` bytes (1 to 8) at `offset`.
    uint64_t Big(uint64_t offset, size_t width);
    uint64_t Little(uint64_t offset, size_t width);
    /// Whether the bytes at `offset` are these; a short file has others and stays `ok`.
    bool StartsWith(const char* bytes, size_t count);

  private:
    const uint8_t* Bytes(uint64_t offset, size_t count);
    bool Holds(uint64_t offset, size_t count) const;

    ByteSource& source_;
    bool ok_ = true;
    int refills_ = 0;
    uint64_t start_ = 0;  // file offset of the window
    size_t length_ = 0;   // bytes of the window that are filled
    uint8_t window_[kWindow];
};

}  // namespace koli
