// A temporary directory, gone at its end with everything below it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

namespace koli::test {

using namespace std::string_literals;

class TempDir {
  public:
    TempDir() : TempDir(std::string(mkdtemp("/tmp/koli-test-XXXXXX"s.data()))) {}
    explicit TempDir(std::string made) : dir_(std::move(made)) {}
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(dir_, ignored);
    }
    TempDir(const TempDir&) = delete;

    const std::string& dir() const { return dir_; }
    std::string Path(const std::string& name) const { return dir_ + "/" + name; }
    /// Makes a directory, or a file with its folders; returns its path.
    std::string MakeDir(const std::string& name) const {
        std::filesystem::create_directories(Path(name));
        return Path(name);
    }
    std::string Write(const std::string& name, const std::string& bytes) const {
        std::filesystem::create_directories(std::filesystem::path(Path(name)).parent_path());
        std::ofstream(Path(name), std::ios::binary) << bytes;
        return Path(name);
    }

  private:
    const std::string dir_;
};

/// A folder whose path has the length of a volume's: eight characters of name.
inline std::string NewVolume() {
    int number = 100;
    while (!std::filesystem::create_directory("/tmp/" + std::to_string(number)))
        ++number;
    return "/tmp/" + std::to_string(number);
}

/// Whether script/machine emulates the processor.
inline bool IsEmulated() {
    return getenv("KOLI_TRIPLE") != nullptr;
}
constexpr const char* kNothingKept = "the emulator keeps no memory from children";

inline std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace koli::test
