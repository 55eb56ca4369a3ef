#include "tests/photo_sandbox.h"

#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "index/directory.h"
#include "index/index.h"
#include "index/share_path.h"
#include "photo/share_fs.h"

namespace koli {
namespace test {

std::string share_target;
int index_result = 0;

PhotoSandbox::PhotoSandbox() {
    fake = FakePlatform{};
    photo_share_needs_type_check = false;
    index_result = 0;
    int number = 100;
    do {
        volume_ = "/tmp/" + std::to_string(number++);
    } while (mkdir(volume_.c_str(), 0755) != 0 && number < 1000);
    top_ = volume_ + "/photo";
    share_target = top_;
    std::filesystem::create_directory(top_);
}

PhotoSandbox::~PhotoSandbox() {
    std::error_code ignored;
    std::filesystem::remove_all(volume_, ignored);
}

std::string PhotoSandbox::MakeDir(const std::string& name) const {
    std::filesystem::create_directories(In(name));
    return In(name);
}

std::string PhotoSandbox::MakeFile(const std::string& name) const {
    std::filesystem::create_directories(std::filesystem::path(In(name)).parent_path());
    std::ofstream(In(name)) << 'x';
    return In(name);
}

}  // namespace test

using test::fake;

int IndexOnePath(const char* path, int mode) {
    fake.calls.push_back("IndexOnePath " + std::to_string(mode) + " " + path);
    return test::index_result;
}

int IndexWalk(const char* path, int mode, int types) {
    fake.calls.push_back("IndexWalk " + std::to_string(mode) + " " + std::to_string(types) + " " + path);
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
