// Asking a disk for what will be read, before it is read.
#pragma once

#include <cstdint>

namespace koli {

/// Asks for [from, end) of an open file, in requests of 256 KB, and does not wait for them.  errno stays as
/// it is.
void ReadAheadRequest(int file, int64_t from, int64_t end);

/// The reads of one open file.  The kernel's own read-ahead is off (OpenForReading), as it guesses: it brings
/// three times what is read of a song.  Here the reader says what it goes through; of what it does not say,
/// bytes that are read in order are followed by a quarter of them.
class ReadAhead {
  public:
    static constexpr int64_t kMost = 1 << 21;         // bytes ahead of what is expected
    static constexpr int64_t kMostGuessed = 1 << 18;  // the same of what is only likely

    /// All bytes of [from, end) will be read, in this order, unless the reader finds what it searches.
    void Expect(int64_t from, int64_t end);

    /// `length` bytes at `offset` of `file`, an open descriptor, are about to be read.  errno stays as it is.
    void BeforeRead(int file, int64_t offset, int64_t length);

  private:
    /// How many bytes from `offset` on are worth asking for.
    int64_t Worth(int64_t offset, int64_t length);

    int64_t expected_end_ = 0;
    int64_t requested_ = 0;  // up to here, from the last jump on, the disk has been asked
    int64_t next_ = -1;      // where a read in order begins, at the latest
    int64_t in_order_ = 0;   // bytes that have been read in order
};

}  // namespace koli
