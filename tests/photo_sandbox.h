// A photo share whose real top has the length that every share's has, and recorders for what stands below the
// photo room.  For one source file of a test program.
#pragma once

#include "index/share_path.h"
#include "photo/share_fs.h"
#include "tests/fake_index.h"
#include "tests/fixture.h"

namespace koli::test {

inline std::string share_target;  // where the share's link leads to; "" for a link that cannot be read

/// "/tmp/NNN": a volume's name has eight characters.
inline std::string NewVolume() {
    int number = 100;
    while (!std::filesystem::create_directory("/tmp/" + std::to_string(number)))
        ++number;
    return "/tmp/" + std::to_string(number);
}

/// The share is "photo" on a volume of its own.  The share's link leads to it.
struct PhotoFixture : testing::Test, TempDir {
    PhotoFixture() : TempDir(NewVolume()) {
        fake = {};
        photo_share_needs_type_check = false;
        share_target = top_;
    }
    /// The path of a name in the share; made as a directory, or as a file of one byte.
    std::string In(const std::string& name) const { return top_ + "/" + name; }
    std::string MakeDir(const std::string& name) const { return TempDir::MakeDir("photo/" + name); }
    std::string MakeFile(const std::string& name) const { return Write("photo/" + name, "x"); }

    const std::string top_ = TempDir::MakeDir("photo");
};

}  // namespace koli::test

int koli::IsRecycleBinPath(const char* path) {
    return (std::string(path) + "/").starts_with(test::share_target + "/#recycle/");
}

int koli::ShareTargetGet(const char*, char (&target)[kPathSize]) {
    snprintf(target, sizeof target, "%s", test::share_target.c_str());
    return test::share_target.empty() ? -1 : 0;
}
