// A temporary directory for the tests of the host platform, which cannot link the fake's.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace koli::test {

class TempDir {
  public:
    TempDir() {
        char name[] = "/tmp/koli-host-XXXXXX";
        dir_ = mkdtemp(name);
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(dir_, ignored);
    }
    std::string Path(const std::string& name) const { return dir_ + "/" + name; }
    std::string Write(const std::string& name, const std::string& bytes) const {
        std::ofstream(Path(name), std::ios::binary) << bytes;
        return Path(name);
    }

  private:
    std::string dir_;
};

}  // namespace koli::test
