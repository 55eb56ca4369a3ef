// Random changes on a real folder with the kernel's real notes, a model of what the daemon does with the
// requests, and the question whether both agree in the end.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "host_temp_dir.h"
#include "tools/watch/tree_paths.h"
#include "tools/watch/watcher.h"

namespace koli::watch {
namespace {

namespace fs = std::filesystem;

/// Every picture and every folder is born with a number of its own, and every writing of a picture has one;
/// they are in the file, or in one in the folder.
struct Row {
    int id = 0, version = 0;
};
using Rows = std::map<std::string, Row>;  // by path

Row RowOf(const std::string& path) {
    Row row;
    std::ifstream(fs::is_directory(path) ? path + "/.id" : path) >> row.id >> row.version;
    return row;
}

Rows ThingsIn(const std::string& path) {
    Rows things{{path, RowOf(path)}};
    if (fs::is_directory(path))
        for (const auto& entry : fs::recursive_directory_iterator(path))
            things[entry.path()] = RowOf(entry.path());
    return things;
}

Rows PhotosIn(const std::string& path) {
    Rows photos = ThingsIn(path);
    std::erase_if(photos, [](const auto& file) {
        return !file.first.ends_with(".jpg") || !fs::is_regular_file(file.first);
    });
    return photos;
}

/// The photo library as requests change it: the disk is looked at when a request is executed.  A row has the
/// number of the picture or folder that was given its caption or its rights, 0 or less without.
struct DaemonModel {
    std::string share;
    Rows photos, albums;
    std::set<int> given;

    /// What was given something and has no row any more has lost it.
    void Add(Rows* rows, const std::string& path) const {
        const auto [id, version] = RowOf(path);
        rows->try_emplace(path, given.contains(id) ? -id : 0).first->second.version = version;
    }
    void GiveAll(Rows* rows) {
        for (auto& [path, row] : *rows)
            given.insert(row.id = RowOf(path).id);
    }
    void AddPhotos(const std::string& path) {
        for (const auto& [file, row] : PhotosIn(path))
            Add(&photos, file);
    }
    long Depth(const std::string& path) const {
        return std::count(path.begin() + static_cast<long>(share.size()), path.end(), '/') - 1;
    }
    void AddAlbums(const std::string& path) {
        if (Depth(path) > 1 || !fs::is_directory(path)) return;
        if (Depth(path) >= 0) Add(&albums, path);
        for (const auto& entry : fs::directory_iterator(path))
            AddAlbums(entry.path());
    }
    static void RemoveTree(Rows* rows, const std::string& path) {
        std::erase_if(*rows, [&](const auto& row) { return IsAtOrBelow(row.first, path); });
    }
    void MovePhotos(const std::string& to, const std::string& from) {
        Rows moved;
        for (const auto& [row, stored] : photos)
            if (IsAtOrBelow(row, from)) moved[row] = stored;
        for (const auto& [row, stored] : moved) {
            const std::string target = MovedPath(row, from, to);
            if (fs::exists(row) && photos.contains(target)) continue;
            photos.erase(row);
            photos[target] = stored;
        }
        if (moved.empty()) AddPhotos(to);
    }
    /// Sub-albums go along from top to top, behind an album that has been met; elsewhere they lose what they
    /// were given, and so does an album below the second level.
    void MoveAlbum(const std::string& to, const std::string& from) {
        if (Depth(from) > 1 && Depth(to) > 1) return;
        const bool is_known = albums.contains(from);
        if (is_known && fs::exists(to) && !fs::exists(from)) RemoveTree(&albums, to);
        if (is_known && albums.contains(to)) return;
        Rows moved;
        for (const auto& [row, stored] : albums)
            if (row == from || (IsAtOrBelow(row, from) && Depth(from) == 0)) moved[row] = stored;
        for (const auto& [row, stored] : moved) {
            albums.erase(row);
            const bool is_moved = is_known && (row == from || Depth(to) == 0);
            if (is_moved) albums[MovedPath(row, from, to)] = stored;
            if (!is_moved || Depth(to) > 1) given.erase(stored.id);
        }
        AddAlbums(to);
    }
    void Rename(const std::string& to, const std::string& from) {
        const auto is_inside = [&](const auto& row) { return row.first.starts_with(from + "/"); };
        const bool is_known = albums.contains(from) || std::ranges::any_of(photos, is_inside);
        const bool is_folder = fs::is_directory(to) || (!fs::exists(to) && is_known);
        EXPECT_NE(to, from);
        if (!is_folder && photos.contains(from) && !fs::exists(from)) photos.erase(to);
        if (is_folder || to.ends_with(".jpg")) MovePhotos(to, from);
        if (is_folder) MoveAlbum(to, from);
    }
    void Execute(const std::string& line) {
        const std::string path = line.substr(2);
        if (line[0] == 'N') {
            Rename(path.substr(0, path.find(':')), path.substr(path.find(':') + 1));
        } else if (line[0] == 'A' || line[0] == 'a') {
            AddPhotos(path);
            AddAlbums(path);
        } else if (!fs::exists(path)) {
            RemoveTree(&photos, path);
            if (Depth(path) <= 1) RemoveTree(&albums, path);
        }
    }
    void Compare(const std::string& path) {
        const auto is_gone = [&](const auto& row) {
            return IsAtOrBelow(row.first, path) && !fs::exists(row.first);
        };
        std::erase_if(photos, is_gone);
        std::erase_if(albums, [&](const auto& row) { return Depth(row.first) <= 1 && is_gone(row); });
        AddPhotos(path);
        AddAlbums(path);
    }
};

/// A folder like a photo share: its volume's path is eight characters long.
test::TempDir MakeVolume() {
    for (int i = 100; i < 1000; ++i)
        if (std::string path = "/tmp/" + std::to_string(i); fs::create_directory(path))
            return test::TempDir(path);
    throw std::runtime_error("no volume");
}

/// A small library with its watcher, on a clock of its own.
class Scene : public RequestSink {
  public:
    explicit Scene(unsigned seed) : log("seed " + std::to_string(seed) + "\n"), random_(seed) {
        daemon_.share = top_;
        EXPECT_TRUE(watcher_.Open());
    }
    void Fill() {
        for (const char* folder : {"/d", "/d/e", "/d2"})
            Make(top_ + folder, true);
        for (const char* file : {"/a.jpg", "/d/a.jpg", "/d/b.jpg", "/d/e/a.jpg", "/d2/b.jpg"})
            Make(top_ + file, false);
    }
    void Change();
    void Pass(int64_t milliseconds) {
        watcher_.Turn(now_);
        watcher_.Turn(now_ += milliseconds);
    }
    void RunDaemon();
    void ExpectAgreement();
    unsigned Pick(unsigned count) { return static_cast<unsigned>(random_() % count); }
    int compares = 0;
    std::string log;

  private:
    bool Queue(const std::string& lines) override {
        log += lines;
        queue_ += lines;
        return true;
    }
    bool Compare(const std::string& folder, bool, std::string*) override {
        log += "compare " + folder + "\n";
        daemon_.Compare(folder);
        ++compares;
        return true;
    }
    bool IsQueueEmpty() override { return queue_.empty(); }

    std::string AnyPath(bool is_folder) {
        constexpr const char *kFolders[] = {"/d", "/d2", "/e"}, *kFiles[] = {"/a.jpg", "/b.jpg", "/c.txt"};
        std::string path = Pick(12) == 0 ? outside_ : top_;
        for (unsigned depth = Pick(3); depth > 0; --depth)
            path += kFolders[Pick(3)];
        return path + (is_folder ? kFolders : kFiles)[Pick(3)];
    }
    bool Make(const std::string& path, bool is_folder) {
        if (!fs::is_directory(fs::path(path).parent_path()) || fs::is_directory(path)) return false;
        if (is_folder && !fs::create_directory(path)) return false;
        const int id = is_folder || !fs::exists(path) ? ++last_id_ : RowOf(path).id;
        std::ofstream(is_folder ? path + "/.id" : path) << id << " " << ++last_version_;
        return true;
    }

    std::mt19937 random_;
    const test::TempDir volume_ = MakeVolume();
    const std::string top_ = volume_.MakeDir("photo"), outside_ = volume_.MakeDir("other");
    int last_id_ = 0, last_version_ = 0;
    DaemonModel daemon_;
    std::string queue_;
    Watcher watcher_{{top_}, this};
    int64_t now_ = 1000;
};

/// Most of what is picked does not exist or is not allowed, and then nothing happens.
void Scene::Change() {
    const bool is_folder = Pick(3) == 0;
    const std::string path = AnyPath(is_folder), to = AnyPath(is_folder);
    const unsigned kind = Pick(4);
    // A picture that gets another name on its way into a folder of this moment is not known again.
    if (fs::path(path).filename() != fs::path(to).filename()) watcher_.Turn(now_);
    std::error_code error;
    bool is_done = true;
    if (kind == 0)
        is_done = Make(path, is_folder);
    else if (kind == 1)
        is_done = fs::remove_all(path, error) != 0;
    else
        fs::rename(path, to, error);
    if (kind > 1 && !error) {
        // Nothing is stored under such a name: what comes back from there is another picture.
        if (to.ends_with(".txt")) std::ofstream(to) << ++last_id_ << " " << ++last_version_;
        // What comes back from outside may be as new.
        if (to.starts_with(outside_))
            for (const auto& [thing, row] : ThingsIn(to))
                daemon_.given.erase(row.id);
    }
    if (is_done && !error)
        log += std::array{"make ", "remove ", "move ", "move "}[kind] + path + " " + to + "\n";
    if (Pick(3) != 0) watcher_.Turn(now_);
}

void Scene::RunDaemon() {
    log += "daemon\n";
    std::istringstream lines(std::exchange(queue_, {}));
    for (std::string line; std::getline(lines, line);)
        daemon_.Execute(line);
    watcher_.Turn(now_ += 10'000);
}

void Scene::ExpectAgreement() {
    EXPECT_EQ(queue_, "") << log;
    const Rows photos = PhotosIn(top_);
    ASSERT_EQ(daemon_.photos.size(), photos.size()) << log;
    for (const auto& [path, row] : photos) {
        const bool is_new = !daemon_.given.contains(row.id);  // it may have the caption of what it replaced
        EXPECT_EQ(is_new ? row.id : daemon_.photos[path].id, row.id) << path << "\n" << log;
        EXPECT_EQ(daemon_.photos[path].version, row.version) << path << "\n" << log;
    }
    std::erase_if(daemon_.albums, [&](const auto& row) { return daemon_.Depth(row.first) > 1; });
    for (const auto& entry : fs::recursive_directory_iterator(top_)) {
        const bool is_album = entry.is_directory() && daemon_.Depth(entry.path()) <= 1;
        EXPECT_EQ(daemon_.albums.contains(entry.path()), is_album) << entry.path() << "\n" << log;
    }
    for (const auto& [path, stored] : daemon_.albums) {
        const int id = RowOf(path).id;
        const bool is_free = stored.id <= 0 && !daemon_.given.contains(id);
        EXPECT_EQ(is_free ? id : stored.id, id) << path << "\n" << log;
    }
    daemon_.GiveAll(&daemon_.photos);
    daemon_.GiveAll(&daemon_.albums);
    log.clear();
}

TEST(WatchModelTest, TheStoresFollowTheDisk) {
    constexpr int kScenes = 24, kGames = 40, kSteps = 12;  // the watches of a scene take long to remove
    int compares = 0;
    for (unsigned seed = 0; seed < kScenes && !HasFailure(); ++seed) {
        Scene scene(seed);
        for (int game = 0; game < kGames && !HasFailure(); ++game) {
            const bool daemon_keeps_up = game % 2 == 0;
            scene.Fill();
            for (int step = 0; step < kSteps; ++step) {
                for (unsigned changes = 1 + scene.Pick(12); changes > 0; --changes)
                    scene.Change();
                scene.Pass(daemon_keeps_up ? 2 * kLongest : scene.Pick(2 * kQuiet));
                if (daemon_keeps_up || scene.Pick(5) == 0) scene.RunDaemon();
            }
            if (daemon_keeps_up) compares += std::exchange(scene.compares, 0);
            for (int i = 0; i < 3; ++i) {
                scene.Pass(2 * kLongest);
                scene.RunDaemon();
            }
            scene.compares = 0;
            scene.ExpectAgreement();
        }
    }
    // Comparisons must not be what makes it right: they belong to less than one step in twenty.
    EXPECT_LT(compares, kScenes * kGames / 2 * kSteps / 20);
}

}  // namespace
}  // namespace koli::watch
