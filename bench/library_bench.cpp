// What the library's pages cost over databases without files:
//
//   library_bench make DIR [SONGS PICTURES]      fills the databases in DIR (100,000 of each)
//   library_bench measure DIR                    memory, and the time of each question
//   library_bench touch DIR                      changes a song
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
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
constexpr int kSongsOfAlbum = 12, kAlbumsOfArtist = 3, kPicturesOfFolder = 150;

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

void MakeSong(int i) {
    const int record = i / kSongsOfAlbum, artist = record / kAlbumsOfArtist, track = i % kSongsOfAlbum + 1;
    const std::string name = Words(artist, 2) + " " + std::to_string(artist);
    const std::string title = Words(i, 2) + " " + std::to_string(i);
    const std::string album = Words(record * 3, 2) + " " + std::to_string(record);
    char number[8];
    snprintf(number, sizeof number, "%02d", track);
    MediaInfo song{};
    Put(song.path, "/volume1/music/" + name + "/" + album + "/" + number + " - " + title + ".mp3");
    Put(song.title, title);
    Put(song.artist, name);
    Put(song.album, album);
    Put(song.genre, Word(artist % 20));
    Put(song.ctime, "Sun Nov 15 20:39:22 2026\n");
    song.track = track;
    song.year = 1960 + record % 60;
    song.duration = 180;
    song.has_cover = track == 1 ? 1 : 0;
    MediaInfoDBSave(kStoreMusic, &song);
}

void MakePicture(int i) {
    const int folder = i / kPicturesOfFolder;
    char name[64], taken[64];
    snprintf(name, sizeof name, "IMG_%04d%02d%02d_%06d", 2005 + folder % 20, i % 12 + 1, i % 28 + 1, i);
    snprintf(taken, sizeof taken, "%04d:%02d:%02d %02d:%02d:00", 2005 + folder % 20, i % 12 + 1, i % 28 + 1,
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
    Put(record.title, i % 10 == 0 ? Words(i, 3) : name);
    Put(record.date_taken, taken);
    Put(record.camera_model, "DSC " + std::to_string(folder % 7));
    PhotoInfoDBSave(&record, 1);
    if (i % kPicturesOfFolder == 0)
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
    const auto albums = library.Albums(serve::AlbumOrder::kNewest, {.from = 4000, .count = 1});
    Time("album", [&] { return library.SongsOf(albums.rows.at(0).key, span).rows.size(); });
    Time("artists", [&] { return library.Artists(span).total; });
    const std::string genre = library.Genres(span).rows.at(1).name;
    Time("songs of a genre", [&] { return library.Songs(serve::SongsBy::kGenre, genre, span).total; });
    Time("albums of a genre", [&] { return library.AlbumsOf(serve::SongsBy::kGenre, genre, span).total; });
    Time("pictures", [&] { return library.Pictures({.from = 50000, .count = 100}).rows.size(); });
    Time("months", [&] { return library.Months(span).total; });
    Time("pictures of a month", [&] { return library.PicturesOfMonth("2012-05", span).total; });
    Time("photo albums", [&] { return library.PhotoAlbums(span).rows.size(); });
    const std::string folder = library.PhotoAlbums(span).rows.at(7).name;
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

int Make(const char* folder, int songs, int pictures) {
    host::DatabaseDirectorySet(folder);
    for (int i = 0; i < songs; ++i)
        MakeSong(i);
    for (int i = 0; i < pictures; ++i)
        MakePicture(i);
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
    printf("then %.1f MB over %.1f MB\n", static_cast<double>(ResidentKb() - empty) / 1024,
           static_cast<double>(empty) / 1024);
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
        return Make(argv[2], argc > 3 ? atoi(argv[3]) : 100'000, argc > 4 ? atoi(argv[4]) : 100'000);
    if (argc == 3 && strcmp(argv[1], "measure") == 0) return Measure(argv[2]);
    if (argc == 3 && strcmp(argv[1], "touch") == 0) return Touch(argv[2]);
    fprintf(stderr, "usage: library_bench make DIR [SONGS PICTURES] | library_bench measure|touch DIR\n");
    return 2;
}
