// A photo share whose real top has the length that every share's has, and recorders for what stands below the
// photo room.  For one source file of a test program.
#pragma once

#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "index/directory.h"
#include "index/index.h"
#include "index/share_path.h"
#include "photo/share_fs.h"
#include "tests/fake_platform.h"

namespace koli {
namespace test {

inline std::string share_target;  // where the share's link leads to; "" for a link that cannot be read
inline int index_result = 0;      // what IndexOnePath returns

/// "/tmp/NNN/photo": the volume's name has eight characters.  The share's link leads to it.
class PhotoSandbox {
  public:
    PhotoSandbox() {
        fake = FakePlatform{};
        photo_share_needs_type_check = false;
        index_result = 0;
        int number = 100;
        do {
            volume_ = "/tmp/" + std::to_string(number++);
        } while (mkdir(volume_.c_str(), 0755) != 0 && number < 1000);
        share_target = top_ = volume_ + "/photo";
        std::filesystem::create_directory(top_);
    }
    ~PhotoSandbox() {
        std::error_code ignored;
        std::filesystem::remove_all(volume_, ignored);
    }
    PhotoSandbox(const PhotoSandbox&) = delete;
    PhotoSandbox& operator=(const PhotoSandbox&) = delete;

    const std::string& top() const { return top_; }
    /// The path of a name in the share.
    std::string In(const std::string& name) const { return top_ + "/" + name; }
    /// Make a directory, or a file of one byte, in the share; return its path.
    std::string MakeDir(const std::string& name) const {
        std::filesystem::create_directories(In(name));
        return In(name);
    }
    std::string MakeFile(const std::string& name) const {
        std::filesystem::create_directories(std::filesystem::path(In(name)).parent_path());
        std::ofstream(In(name)) << 'x';
        return In(name);
    }

  private:
    std::string volume_, top_;
};

}  // namespace test

int IndexOnePath(const char* path, int mode) {
    test::fake.calls.push_back("IndexOnePath " + std::to_string(mode) + " " + path);
    return test::index_result;
}

int IndexWalk(const char* path, int mode, int types) {
    test::fake.calls.push_back("IndexWalk " + std::to_string(mode) + " " + std::to_string(types) + " " +
                               path);
    return 0;
}

int IsRecycleBinPath(const char* path) {
    const std::string bin = test::share_target + "/#recycle";
    return strncmp(path, bin.c_str(), bin.size()) == 0 &&
           (path[bin.size()] == '/' || path[bin.size()] == '\0');
}

int ShareTargetGet(const char*, char (&target)[kPathSize]) {
    snprintf(target, sizeof target, "%s", test::share_target.c_str());
    return test::share_target.empty() ? -1 : 0;
}

}  // namespace koli
