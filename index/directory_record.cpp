#include "index/directory_record.h"

#include "base/log.h"
#include "platform/kolidb.h"
#include "platform/kolisdk.h"

namespace koli {
namespace {
constexpr const char kModule[] = "directory";
}

int DirectoryInfoSave(const char* path) {
    if (path == nullptr || *path == '\0') {
        KOLI_LOG("%s (%d) Bad parameter.");
        return -1;
    }
    if (IsDirExist(path) == 0) return -1;
    if (MediaInfoDBDirSave(path) != 0) {
        KOLI_LOG("%s (%d) Failed to save directory info to database.");
        return -1;
    }
    return 0;
}

}  // namespace koli
