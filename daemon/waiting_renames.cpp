#include "daemon/waiting_renames.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "base/regular_file.h"
#include "index/record/share_path.h"

namespace koli {
namespace {

/// FNV-1a, 64 bits: one pass over a path gives the hashes of all folders above it, too.
constexpr uint64_t kHashStart = 0xcbf29ce484222325;
constexpr uint64_t kHashFactor = 0x100000001b3;

uint64_t HashNext(uint64_t hash, char byte) {
    return (hash ^ static_cast<unsigned char>(byte)) * kHashFactor;
}

uint64_t HashOf(const char* path) {
    uint64_t hash = kHashStart;
    for (; *path != '\0'; ++path)
        hash = HashNext(hash, *path);
    return hash;
}

/// Whether the last of the lines that name a path begins at `begin` or later.
bool IsNamed(const std::vector<WaitingRenames::Place>& places, int64_t begin, uint64_t hash) {
    const auto behind =
        std::upper_bound(places.begin(), places.end(), WaitingRenames::Place{hash, INT64_MAX});
    return behind != places.begin() && (behind - 1)->path == hash && (behind - 1)->begin >= begin;
}

}  // namespace

bool WaitingRenames::Holds(const char* file, int64_t begin, const char* path) try {
    Update(file, begin);
    return path == nullptr ? last_of_photos_ >= begin : IsIn(old_places_, begin, path);
} catch (const std::bad_alloc&) {
    *this = {};
    return true;
}

bool WaitingRenames::Brings(const char* file, int64_t begin, const char* path) try {
    Update(file, begin);
    return IsIn(new_places_, begin, path);
} catch (const std::bad_alloc&) {
    *this = {};
    return false;
}

void WaitingRenames::Update(const char* file, int64_t begin) {
    struct stat status;
    if (stat(file, &status) != 0 || !S_ISREG(status.st_mode)) {
        *this = {};
        return;
    }
    const bool is_same = inode_ == status.st_ino && device_ == status.st_dev && size_ <= status.st_size;
    if (is_same && size_ == status.st_size) return;
    const std::unique_ptr<FILE, decltype(&fclose)> lines(StreamOf(RegularFile(file).Release()), &fclose);
    if (lines == nullptr) return;
    if (!is_same) *this = {};
    read_to_ = std::max(read_to_, begin);
    if (fseeko(lines.get(), read_to_, SEEK_SET) == 0) Read(lines.get());
    device_ = status.st_dev;
    inode_ = status.st_ino;
    size_ = status.st_size;
}

/// A line without an end counts as it stands, and is read once more when the file has grown.
void WaitingRenames::Read(FILE* lines) {
    QueueLine line;
    while (QueueLineRead(lines, &line)) {
        if (strncmp(line.text, "N:", 2) == 0) Note(read_to_, line.text + 2);
        if (line.end == QueueLine::kFile) break;
        read_to_ = ftello(lines);
    }
    std::sort(old_places_.begin(), old_places_.end());
    std::sort(new_places_.begin(), new_places_.end());
}

void WaitingRenames::Note(int64_t begin, char* text) {
    char* rest = nullptr;
    char* new_path = strtok_r(text, ":\n", &rest);
    char* old_path = strtok_r(nullptr, ":\n", &rest);
    if (new_path == nullptr || old_path == nullptr) return;
    PathCollapse(new_path);
    PathCollapse(old_path);
    old_places_.push_back({HashOf(old_path), begin});
    new_places_.push_back({HashOf(new_path), begin});
    if (IsPhotoSharePath(new_path) != 0) last_of_photos_ = begin;
}

bool WaitingRenames::IsIn(const std::vector<Place>& places, int64_t begin, const char* path) {
    if (places.empty()) return false;
    uint64_t hash = kHashStart;
    for (const char* at = path; *at != '\0'; ++at) {
        if (*at == '/' && at > path && IsNamed(places, begin, hash)) return true;
        hash = HashNext(hash, *at);
    }
    return IsNamed(places, begin, hash);
}

}  // namespace koli
