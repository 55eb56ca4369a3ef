#include "tools/ctl/media_kinds.h"

#include "base/formats.h"
#include "index/record/share_path.h"
#include "index/record/stored_name.h"
#include "platform/koliindex.h"

namespace koli::ctl {
int MediaKindOf(const char* path) {
    if (NameVerdictOf(path) != NameVerdict::kStored) return kNotIndexed;
    return FormatStore(FormatFind(KOLIIndexExtGet(path))->reader);
}

bool IsLibraryPhoto(const char* path, long long size) {
    return PhotoSizeVerdict(size) == PhotoVerdict::kTaken && IsPhotoSharePath(path) != 0 &&
           PhotoNameVerdict(path) == PhotoVerdict::kTaken && BlKOLIIndexIsPhotoOnWebFile(path) != 0;
}

}  // namespace koli::ctl
