// koliindexctl's table of extensions against the daemon's dispatch table.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "base/media_info.h"
#include "index/index.h"
#include "index/playlist.h"
#include "photo/photo.h"
#include "tools/ctl/media_kinds.h"
#include "video/media.h"
#include "video/video.h"

namespace koli::ctl {
namespace {

int TypeOf(const IndexHandler& handler) {
    if (handler.add == MediaVideoAdd || handler.add == MediaVideoSave || handler.add == VideoAdd)
        return kStoreVideo;
    if (handler.add == PhotoMediaAdd) return kStorePhoto;
    return handler.add == PlaylistFileAdd ? kStorePlaylist : kStoreMusic;
}

// Both tables have 68 rows, asserted where they stand.
TEST(MediaKinds, AreThoseOfTheDispatchTable) {
    std::set<std::string> extensions;
    for (const MediaKind& kind : MediaKinds()) {
        EXPECT_TRUE(extensions.insert(kind.extension).second) << kind.extension;
        const IndexHandler* handler = IndexHandlerFind(kind.extension);
        ASSERT_NE(handler, nullptr) << kind.extension;
        EXPECT_EQ(kind.type, TypeOf(*handler)) << kind.extension;
    }
}

}  // namespace
}  // namespace koli::ctl
