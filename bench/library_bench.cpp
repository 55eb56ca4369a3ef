// What the library's pages cost over databases without files:
//
//   library_bench make DIR [SONGS PICTURES [SHAPE]]  fills the databases in DIR (100,000 of each)
//   library_bench measure DIR                        memory, and the time of each question
//   library_bench touch DIR                          changes a song and a picture
//
// SHAPE "spread", as most have them: albums of 12 songs, folders of 150 pictures, names from all over the
// world; "heap": all songs of one artist, year and genre on one album, all pictures of one month in one
// folder, a comment of its own for each song, a caption for each picture, and every tenth song is broken.
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "base/media_info.h"
#include "base/path_names.h"
#include "base/photo_record.h"
#include "platform/host/database_groups.h"
#include "platform/kolidb.h"
#include "tools/serve/library/library.h"

namespace koli::bench {
namespace {

using serve::Library;
using serve::Span;
using Clock = std::chrono::steady_clock;

const std::vector<std::string> kWords = {
    "Morning", "River",  "Étude",      "Night",    "Sous le ciel",
    "Love",    "Straße", "夜に駆ける", "Ночь",     "Dance",
    "Blue",    "Alone",  "Café",       "Winter",   "Together",
    "花火",    "Señor",  "Golden",     "Machine",  "Remastered",
    "Home",    "Fire",   "바람",       "Electric", "A Long Road Through the Valley of Forgotten Lanterns"};

/// How songs and pictures lie.
struct Shape {
    int songs_of_album = 12, albums_of_artist = 3, pictures_of_folder = 150;
    bool is_heap = false;
};
constexpr Shape kHeap{
    .songs_of_album = INT_MAX, .albums_of_artist = 1, .pictures_of_folder = INT_MAX, .is_heap = true};
constexpr int kBroken = 10;  // each such song of a heap

std::string Word(int seed) {
    return kWords[static_cast<size_t>(seed * 7919 % 104729) % kWords.size()];
}

std::string Words(int seed, int count) {
    std::string words = Word(seed);
    for (int i = 1; i < count; ++i)
        words += " " + Word(seed + i * 31);
    return words;
}

template <size_t N>
void Put(char (&field)[N], const std::string& text) {
    CopyText(field, N, text.c_str());
}

/// As some programs leave it behind.
std::string Comment(int seed) {
    std::string comment;
    char number[16];
    for (int i = 1; i <= 10; ++i) {
        snprintf(number, sizeof number, " %08X", static_cast<unsigned>(seed) * 2654435761U / i);
        comment += number;
    }
    return comment;
}

void MakeSong(const Shape& shape, int i) {
    const int record = i / shape.songs_of_album, artist = record / shape.albums_of_artist;
    const int track = i % shape.songs_of_album + 1;
    const std::string name = Words(artist, 2) + " " + std::to_string(artist);
    const std::string title = Words(i, 2) + " " + std::to_string(i);
    const std::string album = Words(record * 3, 2) + " " + std::to_string(record);
    char number[16];
    snprintf(number, sizeof number, "%02d", track);
    MediaInfo song{};
    Put(song.path, "/volume1/music/" + name + "/" + album + "/" + number + " - " + title + ".mp3");
    Put(song.title, title);
    Put(song.artist, name);
    Put(song.album, album);
    Put(song.genre, Word(artist % 20));
    if (shape.is_heap) Put(song.comment, Comment(i));
    Put(song.ctime, "Sun Nov 15 20:39:22 2026\n");
    song.track = track;
    song.year = 1960 + record % 60;
    song.duration = 180;
    song.has_cover = track == 1 ? 1 : 0;
    MediaInfoDBSave(kStoreMusic, &song);
    if (shape.is_heap && i % kBroken == 0) KOLIProblemSet(song.path, "no frame of sound in it", 0);
}

void MakePicture(const Shape& shape, int i) {
    const int folder = i / shape.pictures_of_folder, month = shape.is_heap ? 5 : i % 12 + 1;
    char name[64], taken[64];
    snprintf(name, sizeof name, "IMG_%04d%02d%02d_%06d", 2005 + folder % 20, month, i % 28 + 1, i);
    snprintf(taken, sizeof taken, "%04d:%02d:%02d %02d:%02d:00", 2005 + folder % 20, month, i % 28 + 1,
             i % 24, i % 60);
    const std::string album = Words(folder, 2) + " " + std::to_string(folder);
    const std::string path = "/volume1/photo/" + album + "/" + name + ".jpg";
    MediaInfo photo{};
    Put(photo.path, path);
    Put(photo.title, name);
    Put(photo.album, album);
    Put(photo.date_taken, taken);
    MediaInfoDBSave(kStorePhoto, &photo);
    PhotoRecord record{};
    Put(record.path, path);
    Put(record.name, name);
    Put(record.title, i % 10 == 0 || shape.is_heap ? Words(i, 3) : name);
    Put(record.date_taken, taken);
    Put(record.camera_model, "DSC " + std::to_string(folder % 7));
    PhotoInfoDBSave(&record, 1);
    if (i % shape.pictures_of_folder == 0)
        PhotoDBExec(("INSERT INTO photo_share (sharename, title, public) VALUES ('" + album + "', '" + album +
                     "', 't')")
                        .c_str());
}

long ResidentKb() {
    long pages = 0, all = 0;
    FILE* const file = fopen("/proc/self/statm", "re");
    if (file == nullptr || fscanf(file, "%ld %ld", &all, &pages) != 2) pages = 0;
    if (file != nullptr) fclose(file);
    return pages * sysconf(_SC_PAGESIZE) / 1024;
}

long PeakKb() {
    char line[128];
    long peak = 0;
    FILE* const file = fopen("/proc/self/status", "re");
    while (file != nullptr && fgets(line, sizeof line, file) != nullptr)
        if (sscanf(line, "VmHWM: %ld", &peak) == 1) break;
    if (file != nullptr) fclose(file);
    return peak;
}

void Time(const char* what, const std::function<size_t()>& ask) {
    std::vector<double> times;
    size_t rows = 0;
    for (int i = 0; i < 9; ++i) {
        const auto begin = Clock::now();
        rows = ask();
        times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
    }
    std::sort(times.begin(), times.end());
    printf("%-28s %8.2f ms  %zu\n", what, times[times.size() / 2], rows);
}

void TimeAll(const Library& library) {
    const Span span{.from = 0, .count = 100};
    Time("albums by title", [&] { return library.Albums(serve::AlbumOrder::kTitle, span).total; });
    const serve::AlbumKey album = library.Albums(serve::AlbumOrder::kNewest, span).rows.back().key;
    Time("album", [&] { return library.SongsOf(album, span).rows.size(); });
    Time("artists", [&] { return library.Artists(span).total; });
    const std::string genre = library.Genres(span).rows.back().name;
    Time("songs of a genre", [&] { return library.Songs(serve::SongsBy::kGenre, genre, span).total; });
    Time("albums of a genre", [&] { return library.AlbumsOf(serve::SongsBy::kGenre, genre, span).total; });
    Time("pictures", [&] { return library.Pictures({.from = 50000, .count = 100}).rows.size(); });
    Time("months", [&] { return library.Months(span).total; });
    Time("pictures of a month", [&] { return library.PicturesOfMonth("2012-05", span).total; });
    Time("photo albums", [&] { return library.PhotoAlbums(span).rows.size(); });
    const std::string folder = library.PhotoAlbums(span).rows.back().name;
    Time("pictures of an album", [&] { return library.PicturesIn(folder, span).total; });
    Time("folder", [&] { return library.Folder("/volume1/music", span).total; });
    const std::string path = library.Pictures({.from = 500, .count = 1}).rows.at(0).path;
    Time("entry", [&] { return library.Entry(path).sections.size(); });
    for (const char* text : {"e", "img", "river", "together 777", "夜", "zzzz", "love 20 night", "ночь"})
        Time((std::string("search: ") + text).c_str(), [&] {
            const auto view = library.Search(text, {.from = 0, .count = 8});
            return view.songs.total + view.pictures.total + view.albums.total;
        });
}

int Make(const char* folder, int songs, int pictures, const Shape& shape) {
    host::DatabaseDirectorySet(folder);
    for (int i = 0; i < songs; ++i)
        MakeSong(shape, i);
    for (int i = 0; i < pictures; ++i)
        MakePicture(shape, i);
    MediaInfo list{};
    Put(list.path, "/volume1/music/long.m3u");
    MediaInfoDBSave(kStorePlaylist, &list);
    KOLIDBSync();
    host::DatabaseDirectorySet(nullptr);
    return 0;
}

int Touch(const char* folder) {
    host::DatabaseDirectorySet(folder);
    MediaInfo song{};
    Put(song.path, "/volume1/music/touched.mp3");
    Put(song.title, std::to_string(Clock::now().time_since_epoch().count()));
    MediaInfoDBSave(kStoreMusic, &song);
    Put(song.path, "/volume1/music/touched.jpg");
    MediaInfoDBSave(kStorePhoto, &song);
    KOLIDBSync();
    host::DatabaseDirectorySet(nullptr);
    return 0;
}

/// Another process changes something, and everything is read again beside the old.
void ReadAgain(const Library& library, const std::string& folder) {
    const uint64_t version = library.Version();
    const std::string program = std::filesystem::read_symlink("/proc/self/exe");
    if (system((program + " touch " + folder).c_str()) != 0) return;
    for (int i = 0; i < 300 && library.Version() == version; ++i)
        usleep(100'000);
    usleep(300'000);
    printf("read again: peak %.1f MB, then %.1f MB\n", static_cast<double>(PeakKb()) / 1024,
           static_cast<double>(ResidentKb()) / 1024);
}

int Measure(const char* folder) {
    ctl::Places places;
    places.databases = folder;
    const long empty = ResidentKb();
    const auto begin = Clock::now();
    Library library(places);
    library.Start();
    if (!library.WaitUntilRead(60) || !library.Error().empty()) {
        fprintf(stderr, "%s\n", library.Error().c_str());
        return 1;
    }
    printf("read in %.2f s, peak %.1f MB, ", std::chrono::duration<double>(Clock::now() - begin).count(),
           static_cast<double>(PeakKb()) / 1024);
    usleep(200'000);
    printf("then %.1f MB over %.1f MB, %.1f MB of it asked for\n",
           static_cast<double>(ResidentKb() - empty) / 1024, static_cast<double>(empty) / 1024,
           static_cast<double>(mallinfo2().uordblks) / (1 << 20));
    TimeAll(library);
    malloc_trim(0);
    printf("in the end %.1f MB\n", static_cast<double>(ResidentKb()) / 1024);
    ReadAgain(library, folder);
    return 0;
}

}  // namespace
}  // namespace koli::bench

int main(int argc, char** argv) {
    using namespace koli::bench;
    if (argc >= 3 && strcmp(argv[1], "make") == 0)
        return Make(argv[2], argc > 3 ? atoi(argv[3]) : 100'000, argc > 4 ? atoi(argv[4]) : 100'000,
                    argc > 5 && strcmp(argv[5], "heap") == 0 ? kHeap : Shape{});
    if (argc == 3 && strcmp(argv[1], "measure") == 0) return Measure(argv[2]);
    if (argc == 3 && strcmp(argv[1], "touch") == 0) return Touch(argv[2]);
    fprintf(stderr,
            "usage: library_bench make DIR [SONGS PICTURES [SHAPE]] | library_bench measure|touch DIR\n");
    return 2;
}
