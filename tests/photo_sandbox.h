// A photo share whose real top has the length that every share's has, over the host platform's databases;
// the walk and the media store's dispatch are recorded.  For one source file of a test program.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <functional>

#include "index/directory.h"
#include "index/index.h"
#include "index/record/share_path.h"
#include "photo/albums/share_fs.h"
#include "photo/conversion.h"
#include "tests/fake_platform.h"
#include "tests/host_databases.h"

namespace koli::test {

using host::Texts;

inline std::string share_target;  // where the share's link leads to; "" for a link that cannot be read

inline std::function<void()> meanwhile;  // what happens to the share when a new file is indexed first

/// "/tmp/NNN": a volume's name has eight characters.
inline std::string NewVolume() {
    int number = 100;
    while (!std::filesystem::create_directory("/tmp/" + std::to_string(number)))
        ++number;
    return "/tmp/" + std::to_string(number);
}

/// The parts of "one, two".
inline Texts Split(const std::string& text) {
    Texts parts;
    for (size_t at = 0, end = 0; at < text.size(); at = end + 2) {
        end = std::min(text.find(", ", at), text.size());
        parts.push_back(text.substr(at, end - at));
    }
    return parts;
}

/// The share is "photo" on a volume of its own.  The share's link leads to it.
struct PhotoFixture : host::Store {
    PhotoFixture() {
        fake = {};
        photo_share_needs_type_check = false;
        share_target = top_;
    }
    /// The path of a name in the share; made as a directory, or as a file of one byte.
    std::string In(const std::string& name) const { return top_ + "/" + name; }
    std::string MakeDir(const std::string& name) const { return volume_.MakeDir("photo/" + name); }
    std::string MakeFile(const std::string& name, const std::string& bytes = "x") const {
        return volume_.Write("photo/" + name, bytes);
    }
    /// A look at this name fails, and says nothing about what is there.
    void MakeUnknown(const std::string& name) const {
        ASSERT_EQ(symlink(In(name).c_str(), In(name).c_str()), 0);
    }

    /// The file system's clock ticks every few milliseconds: after this, what was made is older than what
    /// comes.
    static void LetTimePass() { usleep(10000); }

    /// The photo rows as "NAME TITLE", the names relative to the share.
    Texts Photos() const {
        return Photo("SELECT substr(path, " + std::to_string(top_.size() + 2) +
                     ") || ' ' || title AS v FROM photo_info ORDER BY path");
    }
    void AddPhotos(const Texts& photos) const {
        for (const std::string& photo : photos)
            host::SavePhoto(In(photo.substr(0, photo.find(' '))), photo.substr(photo.find(' ') + 1));
    }

    const TempDir volume_{NewVolume()};
    const std::string top_ = volume_.MakeDir("photo");
};

}  // namespace koli::test

int koli::IndexOnePath(const KnownPath& path, int mode) {
    if (test::meanwhile != nullptr) std::exchange(test::meanwhile, nullptr)();
    return test::Record(__func__, path.text(), mode);
}

int koli::IndexWalk(const KnownPath& path, int mode, int types) {
    return test::Record(__func__, path.text(), mode, types);
}

void koli::ConversionRequest(const KnownPath&, int) {}
void koli::FlvConvert(const KnownPath&) {}

int koli::IsRecycleBinPath(const char* path) {
    return (std::string(path) + "/").starts_with(test::share_target + "/#recycle/");
}

bool koli::ShareTargetGet(const char*, char (&target)[kPathSize]) {
    snprintf(target, sizeof target, "%s", test::share_target.c_str());
    return !test::share_target.empty();
}
