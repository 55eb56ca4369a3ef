#include "tools/serve/maker/picture_child.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <span>
#include <vector>

#include "guard/guard_steps.h"
#include "guard/probe_guard.h"
#include "guard/sanitized_build.h"
#include "tools/serve/maker/small_picture.h"

namespace koli::serve {
namespace {

constexpr int64_t kMaxFile = 192 << 20;  // bytes: file and pixels must have room in the memory of a child
constexpr size_t kPadding = 64;          // behind the file, which decoders read: no second copy for that

/// Bytes of the file, 0 when it cannot be a picture.
size_t SizeOf(int file) {
    struct stat info {};
    if (fstat(file, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > kMaxFile) return 0;
    return static_cast<size_t>(info.st_size);
}

/// Nothing when the disk has failed.  A file that has become shorter is what is left of it.
std::optional<std::vector<uint8_t>> Whole(int file, size_t size) {
    posix_fadvise(file, 0, static_cast<off_t>(size), POSIX_FADV_WILLNEED);
    std::vector<uint8_t> bytes;
    bytes.reserve(size + kPadding);
    bytes.resize(size);
    size_t length = 0;
    while (length < size) {
        const ssize_t count = read(file, bytes.data() + length, size - length);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return std::nullopt;
        if (count == 0) break;
        length += static_cast<size_t>(count);
    }
    bytes.resize(length);
    return bytes;
}

bool LimitTo(const PictureLimits& limits) {
    return LimitResource(RLIMIT_CPU, limits.processor_time) &&
           (kSanitizedBuild || LimitResource(RLIMIT_AS, limits.address_space));
}

}  // namespace

int PictureMakeInChild(PictureSlot& slot, int file, int side, const PictureLimits& limits,
                       pid_t parent) noexcept {
    const size_t size = SizeOf(file);
    if (size == 0) return PictureAnswer::kNoPicture;
    if (lseek(file, 0, SEEK_SET) != 0 || !LimitTo(limits) || !ProbeGuardEnter(file, parent))
        return PictureAnswer::kNotNow;
    std::optional<std::vector<uint8_t>> bytes = Whole(file, size);
    if (!bytes) return PictureAnswer::kNotNow;
    slot.size = static_cast<uint32_t>(SmallPictureMake(std::move(*bytes), side, std::span(slot.bytes)));
    return slot.size > 0 ? PictureAnswer::kMade : PictureAnswer::kNoPicture;
}

}  // namespace koli::serve
