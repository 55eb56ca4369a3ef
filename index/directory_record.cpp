#include "index/directory_record.h"

#include "base/log.h"
#include "platform/kolidb.h"

namespace koli {
namespace {
constexpr const char kModule[] = "directory";
}

int DirectoryInfoSave(const KnownPath& path) {
    if (path.IsEmpty()) {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    if (!path.IsDirectory()) return -1;
    if (MediaInfoDBDirSave(path.text()) != 0) {
        KOLI_LOG("Failed to save directory info to database.");
        return -1;
    }
    return 0;
}

}  // namespace koli
