// The files of "serve --once": which address of the server becomes which file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

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
    /// The next to be written, the one that was named last: so that few wait at a time.  False when all are.
    bool Next(Job* job);

  private:
    /// Two hashes stand for an address: the texts of all would need ten times the room.
    struct Key {
        size_t one, other;
        bool operator==(const Key&) const = default;
    };
    struct KeyHash {
        size_t operator()(const Key& key) const { return key.one; }
    };
    std::string FileOf(const std::string& address);

    std::unordered_map<Key, uint32_t, KeyHash> numbers_;  // of addresses
    std::vector<Job> jobs_;
};

}  // namespace koli::serve
