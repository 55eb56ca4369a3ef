#include "index/both_stores.h"

#include "index/index.h"
#include "index/record/index_mode.h"
#include "photo/conversion.h"
#include "photo/photo_library.h"
#include "photo/picture.h"
#include "platform/kolidb.h"

namespace koli {

void IndexInStores(const KnownPath& path, int mode, int types) {
    Picture picture(path.text());
    KnownPath shared = path;
    if ((types & kWalkPhotoLibrary) != 0) shared.picture = &picture;
    int result = 0;
    if ((types & kWalkMediaStore) != 0) result = IndexOnePath(shared, mode);
    if ((types & ~KOLIDBRefusing() & kWalkPhotoLibrary) == 0) return;
    if (result == 0 || (KOLIDBRefusing() & KOLI_MEDIA_DB) != 0) {
        PhotoLibraryIndex(shared, mode);
    } else {
        FlvConvert(shared);
    }
}

}  // namespace koli
