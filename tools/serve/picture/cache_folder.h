// The files of the picture cache's folder: 256 folders, in which each is named by a hash.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "base/unique_fd.h"

namespace koli::serve {

/// A file of the cache that is on the disk.
struct CachedFile {
    timespec used;   // when last
    uint32_t bytes;  // that it takes, in whole blocks
    uint64_t hash;
};

inline constexpr int kCacheFolders = 256;

/// What `size` bytes take on the disk.
uint64_t CacheBytes(uint64_t size);

/// The folder itself, made if need be with those above it.  Invalid, and `error` says why, unless it is a
/// folder of this user's that nobody else may write to.
UniqueFd CacheFolderOpen(const std::string& folder, std::string* error);

/// One of the 256, which is made when it is to be written to.  Invalid when it is not there, or not a folder.
UniqueFd CacheSubfolder(int folder, int number, bool is_made);
inline int CacheSubfolderOf(uint64_t hash) {
    return static_cast<int>(hash >> 56);
}

/// The file's name in its folder.
std::string CacheFileName(uint64_t hash);

/// Adds what lies in one of the 256 to `files`, and removes what an interrupted writer left there.
void CacheFilesList(int folder, int number, std::vector<CachedFile>* files);

}  // namespace koli::serve
