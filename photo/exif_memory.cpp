#include "photo/exif_memory.h"

#include <ctime>
#include <utility>

namespace koli {
namespace {

/// File systems tell times in steps of up to two seconds: a file that was changed within the last step may
/// change once more without a sign of it.
constexpr time_t kSettledSeconds = 3;

}  // namespace

void ExifMemory::Begin(const struct stat& file) {
    count_ = 0;
    is_usable_ = file.st_ctim.tv_sec + kSettledSeconds <= time(nullptr);
    device_ = file.st_dev;
    inode_ = file.st_ino;
    size_ = file.st_size;
    changed_ = file.st_ctim;
}

void ExifMemory::Add(const Value& value) {
    if (count_ < kMaxValues)
        values_[count_++] = value;
    else
        is_usable_ = false;
}

bool ExifMemory::Recall(const struct stat& file) {
    return std::exchange(is_usable_, false) && file.st_dev == device_ && file.st_ino == inode_ &&
           file.st_size == size_ && file.st_ctim.tv_sec == changed_.tv_sec &&
           file.st_ctim.tv_nsec == changed_.tv_nsec;
}

}  // namespace koli
