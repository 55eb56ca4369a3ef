#include "tools/serve/picture/picture_key.h"

#include <sys/stat.h>

namespace koli::serve {

std::optional<std::string> PictureKey(int file, std::string_view name) {
    struct stat info {};
    if (fstat(file, &info) != 0) return std::nullopt;
    std::string key;
    for (const int64_t number : {int64_t{info.st_size}, int64_t{info.st_mtim.tv_sec},
                                 int64_t{info.st_mtim.tv_nsec}, static_cast<int64_t>(info.st_ino)})
        key += std::to_string(number) + ' ';
    return key.append(name);
}

uint64_t PictureHash(std::string_view bytes) {
    uint64_t hash = 0xCBF29CE484222325;
    for (const char byte : bytes)
        hash = (hash ^ static_cast<uint8_t>(byte)) * 0x100000001B3;
    return hash;
}

}  // namespace koli::serve
