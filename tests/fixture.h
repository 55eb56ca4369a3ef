// The fixture of tests on the fake platform: for each a fresh fake, an empty directory, which is also the
// working directory, and every feature switched on.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include "base/features.h"
#include "tests/fake_platform.h"

namespace koli::test {

struct Fixture : testing::Test, TempDir {
    Fixture() {
        fake = {};
        std::filesystem::current_path(dir());
        support_photo = support_vidora = 1;
    }
};

/// For root, a while without the right to pass by file modes.
struct AsNobody {
    AsNobody() { EXPECT_EQ(was_root ? seteuid(65534) : 0, 0); }
    ~AsNobody() { EXPECT_EQ(was_root ? seteuid(0) : 0, 0); }
    const bool was_root = geteuid() == 0;
};

}  // namespace koli::test
