// One walk over files that are not in the page cache: bytes that its read calls gave, bytes that were read
// from disks for it, requests of all disks of the machine, and time.  What children did is in the bytes.
//
//   cold_bench DIR [evict]      without "evict" as they are: of a share that was mounted just now, nothing
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "base/features.h"
#include "bench/measure.h"
#include "index/directory.h"
#include "index/record/index_mode.h"
#include "platform/kolidb.h"

namespace koli::bench {
namespace {

namespace fs = std::filesystem;

struct Counters {
    double asked = 0;     // bytes given by read calls, those of ended children included
    double read = 0;      // bytes fetched from disks for this process and ended children
    double requests = 0;  // of all disks
};

Counters CountersNow() {
    Counters now;
    char key[32];
    double value = 0;
    FILE* file = fopen("/proc/self/io", "re");
    if (file == nullptr) Fail("/proc/self/io");
    while (fscanf(file, "%31[^:]: %lf ", key, &value) == 2) {
        if (std::string_view(key) == "rchar") now.asked = value;
        if (std::string_view(key) == "read_bytes") now.read = value;
    }
    fclose(file);
    file = fopen("/proc/diskstats", "re");
    if (file == nullptr) Fail("/proc/diskstats");
    while (fscanf(file, "%*d %*d %*s %lf %*[^\n]", &value) == 1)
        now.requests += value;
    fclose(file);
    return now;
}

/// Drops what the page cache holds of a file.
void Evict(const fs::path& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0 || posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED) != 0) Fail(path.c_str());
    close(fd);
}

/// Counted afterwards, without the covers: nothing may be looked at before.
int FilesBelow(const char* dir) {
    int files = 0;
    for (auto entry = fs::recursive_directory_iterator(dir); entry != fs::end(entry); ++entry) {
        if (entry->path().filename() == "@eaDir") entry.disable_recursion_pending();
        files += entry->is_regular_file() ? 1 : 0;
    }
    return files;
}

}  // namespace

int Run(const char* dir, bool evicts) {
    support_photo = 1;
    if (evicts) {
        sync();
        for (const auto& entry : fs::recursive_directory_iterator(dir))
            if (entry.is_regular_file()) Evict(entry.path());
    }
    FreshStores();
    const Counters before = CountersNow();
    const Pass pass = Measure([&] {
        IndexWalk(dir, kModeAdd, kWalkMediaStore | kWalkPhotoLibrary);
        KOLIDBSync();
    });
    const Counters after = CountersNow();
    const int files = FilesBelow(dir);
    printf("files=%d asked=%.0f read=%.0f requests=%.0f seconds=%.4f\n", files, after.asked - before.asked,
           after.read - before.read, after.requests - before.requests, pass.seconds);
    return 0;
}

}  // namespace koli::bench

int main(int argc, char** argv) {
    if (argc == 2 || argc == 3) return koli::bench::Run(argv[1], argc == 3);
    fprintf(stderr, "usage: cold_bench DIR [evict]\n");
    return 2;
}
