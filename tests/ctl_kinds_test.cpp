// koliindexctl's table of extensions against the daemon's dispatch table.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "index/index.h"
#include "tools/ctl/media_kinds.h"

namespace koli::ctl {
namespace {

// Both tables have 68 rows, asserted where they stand.
TEST(MediaKinds, AreThoseOfTheDispatchTable) {
    std::set<std::string> extensions;
    for (const MediaKind& kind : MediaKinds()) {
        EXPECT_TRUE(extensions.insert(kind.extension).second) << kind.extension;
        const IndexHandler* handler = IndexHandlerFind(kind.extension);
        ASSERT_NE(handler, nullptr) << kind.extension;
        EXPECT_EQ(kind.type, handler->type) << kind.extension;
    }
}

}  // namespace
}  // namespace koli::ctl
