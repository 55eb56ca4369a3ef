// Times the indexer in one process, without the daemon's ten-second tick, and prints ratios to a bare loop.
//
//   index_bench music DIR     every file below DIR through the walk, beside the bare loop for MP3 files
//   index_bench photo DIR     the same for JPEG files, media store and photo library both
//   index_bench walk DIR      one pass, for counting system calls and peak memory from outside
//   index_bench delete DIR    removing one folder of a large table
//
// The databases lie in a directory of their own below $TMPDIR.  Each figure is the median of five passes.
#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "base/features.h"
#include "bench/bare_loop.h"
#include "index/directory.h"
#include "platform/host/database_groups.h"
#include "platform/kolidb.h"

namespace koli::bench {
namespace {

constexpr int kPasses = 5;

std::string FreshDirectory(const char* name) {
    const char* base = getenv("TMPDIR");
    const std::filesystem::path dir =
        std::filesystem::path(base != nullptr ? base : "/tmp") / "koli-index-bench" / name;
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    return dir.string();
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

long CountFiles(const std::string& dir) {
    long count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir))
        count += entry.is_regular_file();
    return count;
}

/// Indexes `dir` and puts the rows on the disk, as a queue run does.
double IndexOnce(const std::string& dir) {
    const double start = Now();
    IndexWalk(dir.c_str(), 1, 3);
    KOLIDBSync();
    return Now() - start;
}

long PeakKilobytes() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

int Compare(const std::string& dir, const char* bare_name,
            const std::function<Pass(const std::string&, const std::string&)>& bare) {
    const long files = CountFiles(dir);
    std::vector<double> first, again, loop;
    Pass last;
    for (int pass = 0; pass < kPasses; ++pass) {
        last = bare(dir, FreshDirectory("bare") + "/bare.db");
        loop.push_back(last.seconds);
        host::DatabaseDirectorySet(FreshDirectory("store").c_str());
        first.push_back(IndexOnce(dir));
        again.push_back(IndexOnce(dir));
    }
    const double each = 1e6 / static_cast<double>(files);
    printf("%-28s %8ld files %9.1f us each  %.1f MB read\n", bare_name, last.files,
           Median(loop) * 1e6 / static_cast<double>(last.files), last.megabytes);
    printf("%-28s %8ld files %9.1f us each  ratio %.2f\n", "indexed, empty database", files,
           Median(first) * each, Median(first) / Median(loop));
    printf("%-28s %8ld files %9.1f us each  ratio %.2f\n", "indexed again, unchanged", files,
           Median(again) * each, Median(again) / Median(loop));
    printf("%-28s %8ld KB\n", "peak memory", PeakKilobytes());
    return 0;
}

int WalkOnce(const std::string& dir) {
    host::DatabaseDirectorySet(FreshDirectory("store").c_str());
    const double seconds = IndexOnce(dir);
    const long files = CountFiles(dir);
    printf("%ld files, %.3f s, %.1f us each, peak %ld KB\n", files, seconds,
           seconds * 1e6 / static_cast<double>(files), PeakKilobytes());
    return 0;
}

void FillRows(const char* folder, int count) {
    MediaInfo record{};
    for (int i = 0; i < count; ++i) {
        snprintf(record.path, sizeof record.path, "%s/%08d.mp3", folder, i);
        snprintf(record.title, sizeof record.title, "Title %d", i);
        MediaInfoDBSave(kStoreMusic, &record);
    }
}

/// A folder of 1000 rows is removed from tables of growing size: the cost must stay that of the folder.
int DeleteFolder() {
    for (const int others : {1000, 10000, 100000}) {
        host::DatabaseDirectorySet(FreshDirectory("store").c_str());
        FillRows("/volume1/music/keep", others);
        std::vector<double> seconds;
        for (int pass = 0; pass < kPasses; ++pass) {
            FillRows("/volume1/music/gone", 1000);
            KOLIDBSync();
            const double start = Now();
            MediaInfoDBDelete(kStoreBelowDirectory, "/volume1/music/gone");
            KOLIDBSync();
            seconds.push_back(Now() - start);
        }
        printf("remove a folder of 1000 beside %6d rows: %7.2f ms\n", others, Median(seconds) * 1e3);
    }
    return 0;
}

}  // namespace
}  // namespace koli::bench

int main(int argc, char** argv) {
    using namespace koli::bench;
    const std::string mode = argc > 1 ? argv[1] : "";
    koli::support_photo = 1;
    if (mode == "delete") return DeleteFolder();
    if (argc == 3 && mode == "music") return Compare(argv[2], "bare loop (MP3)", Mp3BareLoop);
    if (argc == 3 && mode == "photo") return Compare(argv[2], "bare loop (EXIF, size)", PhotoBareLoop);
    if (argc == 3 && mode == "walk") return WalkOnce(argv[2]);
    fprintf(stderr, "usage: index_bench music|photo|walk DIR | index_bench delete\n");
    return 2;
}
