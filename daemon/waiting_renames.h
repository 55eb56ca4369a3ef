// The renames among the lines of a queue file, which may hold a million lines and be asked about as often.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <vector>

#include "daemon/queue_line.h"

namespace koli {

/// Remembers what the N lines of one file rename, and whereto: 32 bytes each.  The file is read once; of one
/// that has grown, what is new.
class WaitingRenames {
  public:
    struct Place {
        uint64_t path;  // hash
        int64_t begin;  // of the line
        auto operator<=>(const Place&) const = default;
    };

    /// Whether a line of `file` that begins at byte `begin` or later renames `path` or a folder above it; for
    /// null, anything in a photo share.  `begin` never goes back.  True also when memory runs out, as nobody
    /// knows then; false when the file cannot be read.
    bool Holds(const char* file, int64_t begin, const char* path);

    /// Whether such a line renames anything to `path` or a folder above it.  False also when memory runs out.
    bool Brings(const char* file, int64_t begin, const char* path);

  private:
    void Update(const char* file, int64_t begin);
    void Read(FILE* lines);
    void Note(int64_t begin, char* text);

    static bool IsIn(const std::vector<Place>& places, int64_t begin, const char* path);

    std::vector<Place> old_places_;  // sorted
    std::vector<Place> new_places_;  // sorted
    int64_t last_of_photos_ = -1;    // where the last line begins that renames something in a photo share
    dev_t device_ = 0;               // of the file
    ino_t inode_ = 0;                // 0 = none has been read
    off_t size_ = 0;                 // that it had
    int64_t read_to_ = 0;            // behind the last line with an end
};

}  // namespace koli
