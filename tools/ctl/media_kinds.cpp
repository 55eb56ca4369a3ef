#include "tools/ctl/media_kinds.h"

#include <cstring>

#include "base/formats.h"
#include "base/metadata_folder.h"
#include "base/path_names.h"
#include "index/record/share_path.h"
#include "platform/koliindex.h"

namespace koli::ctl {
int MediaKindOf(const char* path) {
    const char* extension = KOLIIndexExtGet(path);
    if (extension == nullptr || strncmp(FileNameOf(path), "._", 2) == 0) return kNotIndexed;
    const Format* format = FormatFind(extension);
    if (format == nullptr) return kNotIndexed;
    const int type = FormatStore(format->reader);
    return type == kStorePhoto && MentionsMetadataFolder(path) ? kNotIndexed : type;
}

bool IsLibraryPhoto(const char* path, long long size) {
    return size >= 1 && size <= kLibraryPhotoMaxSize && IsPhotoSharePath(path) != 0 &&
           FileNameOf(path)[0] != '.' && BlKOLIIndexIsPhotoOnWebFile(path) != 0 &&
           !MentionsMetadataFolder(path);
}

}  // namespace koli::ctl
