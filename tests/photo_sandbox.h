// A photo share whose real top has the length that every share's has, and recorders for what stands below the
// photo room.
#pragma once

#include <string>

#include "tests/fake_platform.h"

namespace koli::test {

/// "/tmp/XXX/photo": the volume's name has eight characters.  The share's link leads to it.
class PhotoSandbox {
  public:
    PhotoSandbox();
    ~PhotoSandbox();
    PhotoSandbox(const PhotoSandbox&) = delete;
    PhotoSandbox& operator=(const PhotoSandbox&) = delete;

    const std::string& top() const { return top_; }
    /// The path of a name in the share.
    std::string In(const std::string& name) const { return top_ + "/" + name; }
    /// Make a directory, or a file of one byte, in the share; return its path.
    std::string MakeDir(const std::string& name) const;
    std::string MakeFile(const std::string& name) const;

  private:
    std::string volume_;
    std::string top_;
};

/// Where the share's link leads to; "" for a link that cannot be read.
extern std::string share_target;

/// What IndexOnePath returns.
extern int index_result;

}  // namespace koli::test
