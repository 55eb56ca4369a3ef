// Times what must grow with the work alone, each at two or more sizes:
//
//   growth_bench files FEW MANY      indexing two folders: time per file, peak memory
//   growth_bench delete              removing a folder from tables of growing size
//   growth_bench rename              renaming a folder of photos in libraries of growing size
//   growth_bench resync PHOTO        resync of a photo share full of links to PHOTO; in the sandbox alone
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "base/features.h"
#include "bench/measure.h"
#include "bench/photo_share.h"
#include "index/directory.h"
#include "index/record/index_mode.h"
#include "photo/albums/photo_rename.h"
#include "photo/albums/photo_resync.h"
#include "platform/kolidb.h"

namespace koli::bench {
namespace {

constexpr int kPasses = 5;

// ---- Ten times the files

long CountFiles(const char* dir) {
    namespace fs = std::filesystem;
    return std::count_if(fs::recursive_directory_iterator(dir), fs::recursive_directory_iterator(),
                         [](const fs::directory_entry& entry) { return entry.is_regular_file(); });
}

Pass IndexInChild(const char* dir) {
    return InChild([dir] {
        FreshStores();
        return Measure([dir] {
            IndexWalk(dir, kModeAdd, kWalkMediaStore);
            KOLIDBSync();
        });
    });
}

int CompareFolders(const char* few, const char* many) {
    double first_each = 0, first_peak = 0;
    for (const char* dir : {few, many}) {
        const auto files = static_cast<double>(CountFiles(dir));
        IndexInChild(dir);  // covers and the page cache are then as they stay
        std::vector<Pass> passes;
        for (int pass = 0; pass < kPasses; ++pass)
            passes.push_back(IndexInChild(dir));
        const double each = MedianSeconds(passes) / files * 1e6;
        const double peak = MedianPeak(passes);
        if (dir == few) first_each = each, first_peak = peak;
        printf("  %6.0f files: %7.1f us each, ratio %.2f; peak memory %6.0f KB, ratio %.2f\n", files, each,
               each / first_each, peak, peak / first_peak);
    }
    return 0;
}

// ---- Removing a folder

void FillMusic(const char* folder, int count) {
    MediaInfo record{};
    for (int i = 0; i < count; ++i) {
        snprintf(record.path, sizeof record.path, "%s/%08d.mp3", folder, i);
        snprintf(record.title, sizeof record.title, "Title %d", i);
        MediaInfoDBSave(kStoreMusic, &record);
    }
}

int DeleteFolder() {
    double first = 0;
    for (const int others : {1000, 10000, 100000}) {
        FreshStores();
        FillMusic("/volume1/music/keep", others);
        std::vector<Pass> passes;
        for (int pass = 0; pass < kPasses; ++pass) {
            FillMusic("/volume1/music/gone", 1000);
            KOLIDBSync();
            passes.push_back(Measure([] {
                IndexWalk("/volume1/music/gone", kModeDelete, kWalkMediaStore);
                KOLIDBSync();
            }));
        }
        const double seconds = MedianSeconds(passes);
        if (first == 0) first = seconds;
        printf("  1000 rows beside %6d others: %7.2f ms, ratio %.2f\n", others, seconds * 1e3,
               seconds / first);
    }
    return 0;
}

// ---- Renaming a folder

void FillPhotos(const char* folder, int count) {
    PhotoRecord record{};
    for (int i = 0; i < count; ++i) {
        snprintf(record.path, sizeof record.path, "%s/%03d/IMG_%05d.jpg", folder, i / 100, i);
        snprintf(record.name, sizeof record.name, "IMG_%05d.jpg", i);
        snprintf(record.title, sizeof record.title, "IMG_%05d", i);
        snprintf(record.folder, sizeof record.folder, "%03d", i / 100);
        PhotoInfoDBSave(&record, kModeAdd);
    }
    KOLIDBSync();
}

int RenameFolder() {
    static constexpr const char kHere[] = "/volume1/photo/Trip";
    static constexpr const char kThere[] = "/volume1/photo/Travels";
    struct Library {
        int moved, all;
    };
    double first = 0;
    for (const Library library : {Library{10000, 20000}, {10000, 100000}, {1000, 100000}}) {
        FreshStores();
        FillPhotos("/volume1/photo/Keep", library.all - library.moved);
        FillPhotos(kHere, library.moved);
        std::vector<Pass> passes;
        for (int pass = 0; pass < kPasses; ++pass) {
            const bool back = pass % 2 != 0;
            passes.push_back(Measure([back] {
                PhotoPathRename(back ? kHere : kThere, back ? kThere : kHere, 1);
                KOLIDBSync();
            }));
        }
        if (Observer("photo.db").Number("SELECT count(*) FROM photo_info WHERE path LIKE '%/Travels/%'") !=
            library.moved)
            Fail("rename");
        const double each = MedianSeconds(passes) / library.moved * 1e6;
        if (first == 0) first = each;
        printf("  %5d of %6d photos: %8.1f ms, %5.1f us each, ratio %.2f\n", library.moved, library.all,
               MedianSeconds(passes) * 1e3, each, each / first);
    }
    return 0;
}

// ---- Resync

void Resync() {
    if (PhotoFolderResync(nullptr) != 0) Fail("resync");
    KOLIDBSync();
}

int ResyncShare(const char* photo) {
    double first_new = 0, first_known = 0;
    for (const int folders : {100, 1000}) {
        const int photos = folders * 100;
        FillPhotoShare(photo, folders, 100);
        FreshStores();
        const double added = Measure(Resync).seconds / photos * 1e6;
        std::vector<Pass> passes;
        for (int pass = 0; pass < 3; ++pass)
            passes.push_back(Measure(Resync));
        if (Observer("photo.db").Number("SELECT count(*) FROM photo_info") != photos) Fail("resync: rows");
        const double known = MedianSeconds(passes) / photos * 1e6;
        if (first_new == 0) first_new = added, first_known = known;
        printf(
            "  %6d photos in %4d folders: all new %5.1f us each, ratio %.2f; all known %6.2f s, %5.1f us each, ratio %.2f\n",
            photos, folders, added, added / first_new, MedianSeconds(passes), known, known / first_known);
    }
    return 0;
}

int Run(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    support_photo = 1;
    if (argc == 4 && mode == "files") return CompareFolders(argv[2], argv[3]);
    if (argc == 2 && mode == "delete") return DeleteFolder();
    if (argc == 2 && mode == "rename") return RenameFolder();
    if (argc == 3 && mode == "resync") return ResyncShare(argv[2]);
    fprintf(stderr, "usage: growth_bench files FEW MANY | delete | rename | resync PHOTO\n");
    return 2;
}

}  // namespace
}  // namespace koli::bench

int main(int argc, char** argv) {
    return koli::bench::Run(argc, argv);
}
