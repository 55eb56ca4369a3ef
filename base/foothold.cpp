#include "base/foothold.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

namespace koli {
namespace {

constexpr size_t kStep = 256;  // bytes of path between two footholds

}  // namespace

const Foothold* Foothold::deepest_ = nullptr;

Foothold::Foothold(const char* path) : path_(path) {
    const Place place = PlaceOf(path);
    const size_t way = strlen(place.name);
    if (way < kStep) return;
    folder_ = openat(place.folder, place.name, O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (folder_ < 0) return;
    length_ = static_cast<size_t>(place.name - path) + way;
    above_ = deepest_;
    deepest_ = this;
}

Foothold::~Foothold() {
    if (folder_ < 0) return;
    deepest_ = above_;
    close(folder_);
}

Place Foothold::PlaceOf(const char* path) {
    for (const Foothold* hold = deepest_; hold != nullptr; hold = hold->above_) {
        if (strncmp(path, hold->path_, hold->length_) != 0) continue;
        const char* rest = path + hold->length_;
        // A name that began with '/' would be looked for from the root.
        if (rest[0] == '/' && rest[1] != '/' && rest[1] != '\0') return {hold->folder_, rest + 1};
    }
    return {AT_FDCWD, path};
}

int StatNear(const char* path, struct stat* status) {
    const Place place = Foothold::PlaceOf(path);
    return fstatat(place.folder, place.name, status, 0);
}

int LstatNear(const char* path, struct stat* status) {
    const Place place = Foothold::PlaceOf(path);
    return fstatat(place.folder, place.name, status, AT_SYMLINK_NOFOLLOW);
}

int OpenNear(const char* path, int flags) {
    const Place place = Foothold::PlaceOf(path);
    return openat(place.folder, place.name, flags);
}

}  // namespace koli
