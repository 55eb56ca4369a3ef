#include "photo/albums/share_fs.h"

#include <sys/vfs.h>

#include "base/log.h"
#include "platform/paths.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_index";

constexpr unsigned long kUntypedFileSystem = 0x25521814;  // f_type

}  // namespace

bool photo_share_needs_type_check = false;

void PhotoShareFsCheck() {
    struct statfs status;
    if (statfs(paths::kPhotoShare, &status) != 0) {
        KOLI_LOG("Failed to statfs.");
        return;
    }
    photo_share_needs_type_check = static_cast<unsigned long>(status.f_type) == kUntypedFileSystem;
}

}  // namespace koli
