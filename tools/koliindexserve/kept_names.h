// The files of "serve --once": which address of the server becomes which file.
#pragma once

#include <deque>
#include <string>
#include <unordered_map>

#include "tools/serve/page/markup.h"

namespace koli::serve {

/// Gives each address that a page names a file in one folder, with a name that every file system takes, and
/// keeps those that are still to be written.
class KeptNames {
  public:
    KeptNames();
    KeptNames(const KeptNames&) = delete;
    KeptNames& operator=(const KeptNames&) = delete;

    /// How a page in the file `from` writes addresses.
    AddressWriter WriterFor(const std::string& from);

    /// An address, and its file below the folder.
    struct Job {
        std::string address, file;
    };
    /// The next to be written, pages before pictures; false when all are.
    bool Next(Job* job);

  private:
    std::string FileOf(const std::string& address);
    std::string Numbered(const char* folder, const char* ending);

    std::unordered_map<std::string, std::string> files_;  // by address
    std::deque<Job> pages_, pictures_;
    size_t number_ = 0;
};

}  // namespace koli::serve
