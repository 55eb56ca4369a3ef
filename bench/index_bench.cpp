// Times the indexer over a folder of one kind of files, in one process and without the daemon's ten-second
// tick, beside bare loops over the same files:
//
//   index_bench KIND DIR      mp3, photo, flac, aiff, m4a, m4a-probe, dat or film
//   index_bench time DIR      into empty stores and once more, and nothing beside it, in whichever stores
//                             KOLI_BENCH_DATABASE names (postgresql:CONNINFO)
//   index_bench walk DIR      one pass, for counting system calls from outside
//   index_bench A|a DIR       the same by a request for each file
//
// Each figure is the median of several passes over files in the page cache; the stores lie below $TMPDIR.
#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "base/features.h"
#include "base/log.h"
#include "bench/bare_reader.h"
#include "bench/bare_rows.h"
#include "bench/measure.h"
#include "daemon/requests.h"
#include "index/directory.h"
#include "index/record/index_mode.h"
#include "index/record/util.h"
#include "platform/kolidb.h"
#include "video/mp4.h"

namespace koli::bench {
namespace {

constexpr int kPasses = 7;

using Paths = std::vector<std::string>;

/// One kind of files, and what its bare loops do with each.
struct Kind {
    const char* name;
    const char* extension;
    const char* calls;  // what `read` does, for people
    void (*read)(const char* path);
    int stores;  // that the indexer keeps a file in; each looks at the file for itself
    bool is_probe;
    void (*index)(const std::string& dir);
};

Paths FilesBelow(const std::string& dir, const char* extension) {
    Paths paths;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir)) {
        std::string path = entry.path().string();
        const size_t length = strlen(extension);
        if (path.size() > length && strcasecmp(path.c_str() + path.size() - length, extension) == 0 &&
            entry.is_regular_file())
            paths.push_back(std::move(path));
    }
    return paths;
}

void Walk(const std::string& dir) {
    IndexWalk(dir.c_str(), kModeAdd, kWalkMediaStore | kWalkPhotoLibrary);
    KOLIDBSync();
}

/// The handler of MP4 music but for its probe.
void IndexMp4WithoutProbe(const std::string& dir) {
    for (const std::string& path : FilesBelow(dir, ".m4a")) {
        FileReading reading(path.c_str());
        MediaInfo record{};
        const int result = Mp4InfoFill(path.c_str(), &record, reading);
        SaveMediaInfo(kStoreMusic, record, result, LogSite("bench"), "Not saved: %s");
    }
    KOLIDBSync();
}

constexpr Kind kKinds[] = {
    {"mp3", ".mp3", "16 KB reads, memmem", ReadMp3, 1, false, Walk},
    {"photo", ".jpg", "EXIF loader, header size", ReadPhoto, 2, false, Walk},
    {"flac", ".flac", "libFLAC, two calls", ReadFlac, 1, false, Walk},
    {"aiff", ".aiff", "AIFF reader", ReadAiff, 1, false, Walk},
    {"m4a", ".m4a", "MP4 reader", ReadMp4, 1, false, IndexMp4WithoutProbe},
    {"m4a-probe", ".m4a", "MP4 reader, FFmpeg unguarded", ReadMp4AndProbe, 1, true, Walk},
    {"dat", ".dat", "MPEG parser", ReadMpegVideo, 1, false, Walk},
    {"film", "", "FFmpeg unguarded", ReadContainer, 1, true, Walk},
};

/// The passes over a folder, in turns, so that what else the machine does hits all alike.
struct Comparison {
    std::vector<Pass> calls;      // the reader's own calls
    std::vector<Pass> with_rows;  // the same for each store, with a row by a bare upsert
    std::vector<Pass> first;      // indexed into empty stores
    std::vector<Pass> again;      // the same files once more
    bool wrote_again = false;
};

/// `rows` is null for the calls alone.
void BareLoop(const Kind& kind, const std::string& dir, BareRows* rows) {
    for (const std::string& path : FilesBelow(dir, kind.extension)) {
        if (rows == nullptr) kind.read(path.c_str());
        for (int i = 0; rows != nullptr && i < kind.stores; ++i) {
            kind.read(path.c_str());
            rows->Upsert(path + static_cast<char>('0' + i));
        }
    }
    if (rows != nullptr) rows->Commit();
}

Pass MeasureBare(const Kind& kind, const std::string& dir, bool with_rows) {
    const auto measure = [&] {
        std::unique_ptr<BareRows> rows;
        if (with_rows) rows = std::make_unique<BareRows>(StoreDirectory() + "/bare.db");
        return Measure([&] { BareLoop(kind, dir, rows.get()); });
    };
    // A probe leaves much on the heap, which each later child of this process would copy.
    return kind.is_probe ? InChild(measure) : measure();
}

Comparison RunPasses(const Kind& kind, const std::string& dir) {
    Comparison result;
    const auto index = [&] { kind.index(dir); };
    FreshStores();
    index();  // covers and the page cache are then as they stay
    for (int pass = 0; pass < kPasses; ++pass) {
        FreshStores();
        result.calls.push_back(MeasureBare(kind, dir, false));
        result.with_rows.push_back(MeasureBare(kind, dir, true));
        result.first.push_back(Measure(index));
        Observer media("media.db"), photo("photo.db");
        result.again.push_back(Measure(index));
        result.wrote_again |= media.HasBeenWritten() || photo.HasBeenWritten();
    }
    return result;
}

// ---- Printing

void PrintLine(const char* what, const std::vector<Pass>& passes, size_t files, const Comparison& beside) {
    const double seconds = MedianSeconds(passes);
    const auto count = static_cast<double>(files);
    printf("  %-38s %8.1f %8.0f %8.1f %9.2f %9.2f\n", what, seconds / count * 1e6, count / seconds,
           MedianBytes(passes) / count / 1e3, seconds / MedianSeconds(beside.calls),
           seconds / MedianSeconds(beside.with_rows));
}

void PrintRows() {
    Observer media("media.db"), photo("photo.db");
    printf("  rows: music %ld (%ld with a cover), video %ld, photo %ld, photo library %ld\n",
           media.Number("SELECT count(*) FROM music"),
           media.Number("SELECT count(*) FROM music WHERE has_cover <> 0"),
           media.Number("SELECT count(*) FROM video"), media.Number("SELECT count(*) FROM photo"),
           photo.Number("SELECT count(*) FROM photo_info"));
}

double MeanSize(const Paths& paths) {
    double sum = 0;
    for (const std::string& path : paths)
        sum += static_cast<double>(std::filesystem::file_size(path));
    return sum / static_cast<double>(paths.size());
}

/// What is read of a picture must not grow with its size: the smaller half of them and the larger half.
void PrintBytesBySize(const Kind& kind, const std::string& dir) {
    Paths paths = FilesBelow(dir, kind.extension);
    std::sort(paths.begin(), paths.end(), [](const std::string& left, const std::string& right) {
        return std::filesystem::file_size(left) < std::filesystem::file_size(right);
    });
    const auto middle = paths.begin() + static_cast<Paths::difference_type>(paths.size() / 2);
    for (const Paths& half : {Paths(paths.begin(), middle), Paths(middle, paths.end())}) {
        FreshStores();
        const Pass pass = Measure([&] {
            for (const std::string& path : half)
                Walk(path);
        });
        printf("  of files of %6.0f KB on average, %5.1f KB each are read\n", MeanSize(half) / 1e3,
               pass.bytes / static_cast<double>(half.size()) / 1e3);
    }
}

int Compare(const Kind& kind, const std::string& dir) {
    const Paths paths = FilesBelow(dir, kind.extension);
    if (paths.empty()) Fail(dir.c_str());
    const Comparison result = RunPasses(kind, dir);
    printf("%s: %zu files of %.0f KB on average\n", kind.name, paths.size(), MeanSize(paths) / 1e3);
    printf("  %-38s %8s %8s %8s %9s %9s\n", "", "us each", "files/s", "KB read", "to calls", "to rows");
    PrintLine(kind.calls, result.calls, paths.size(), result);
    PrintLine(kind.stores == 1 ? "the same and a bare row" : "the same twice, each with a bare row",
              result.with_rows, paths.size(), result);
    PrintLine("indexed, empty stores", result.first, paths.size(), result);
    PrintLine("indexed again, unchanged", result.again, paths.size(), result);
    PrintRows();
    printf("  indexed again: %s\n",
           result.wrote_again ? "THE STORES WERE WRITTEN" : "nothing was written to the stores");
    if (kind.stores > 1) PrintBytesBySize(kind, dir);
    return 0;
}

int Time(const std::string& dir) {
    const auto count = static_cast<double>(FilesBelow(dir, "").size());
    std::vector<Pass> first, again;
    for (int pass = 0; pass < kPasses; ++pass) {
        FreshStores();
        first.push_back(Measure([&] { Walk(dir); }));
        again.push_back(Measure([&] { Walk(dir); }));
    }
    printf("%.1f us each into empty stores, %.1f us once more\n", MedianSeconds(first) / count * 1e6,
           MedianSeconds(again) / count * 1e6);
    return 0;
}

void RequestEach(char letter, const std::string& dir) {
    for (std::string& path : FilesBelow(dir, "")) {
        RequestExecute(letter, {path.data(), false, true, KOLI_MEDIA_DB | KOLI_PHOTO_DB});
    }
    KOLIDBSync();
}

int Run(const std::string& mode, const std::string& dir) {
    support_photo = 1;
    if (mode == "walk" || mode == "A" || mode == "a") {
        FreshStores();
        if (mode == "walk") Walk(dir);
        if (mode != "walk") RequestEach(mode.front(), dir);
        return 0;
    }
    if (mode == "time") return Time(dir);
    for (const Kind& kind : kKinds)
        if (mode == kind.name) return Compare(kind, dir);
    fprintf(stderr, "index_bench: no such kind: %s\n", mode.c_str());
    return 2;
}

}  // namespace
}  // namespace koli::bench

int main(int argc, char** argv) {
    if (argc == 3) return koli::bench::Run(argv[1], argv[2]);
    fprintf(stderr, "usage: index_bench KIND|time|walk|A|a DIR\n");
    return 2;
}
