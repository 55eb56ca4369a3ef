// Random changes on a real folder with the kernel's real notes, a model of what the daemon does with the
// requests, and the question whether both agree in the end.
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <random>
#include <set>
#include <sstream>

#include "host_temp_dir.h"
#include "tools/watch/composer.h"
#include "tools/watch/event_fold.h"
#include "tools/watch/inotify_port.h"
#include "tools/watch/sent_changes.h"

namespace koli::watch {
namespace {

namespace fs = std::filesystem;

using Paths = std::set<std::string>;

Paths PhotosIn(const std::string& path) {
    Paths files;
    if (fs::is_regular_file(path)) files.insert(path);
    if (fs::is_directory(path))
        for (const auto& entry : fs::recursive_directory_iterator(path))
            if (entry.is_regular_file()) files.insert(entry.path());
    std::erase_if(files, [](const std::string& file) { return !file.ends_with(".jpg"); });
    return files;
}

/// The photo library as requests change it: the disk is looked at when a request is executed, and least of
/// all for a rename.
struct DaemonModel {
    Paths rows;

    void RemoveTree(const std::string& path) {
        std::erase_if(rows, [&](const std::string& row) { return IsAtOrBelowPath(row, path); });
    }
    /// Every row that begins with the old path follows; without rows the new path is added.
    void Rename(const std::string& to, const std::string& from) {
        const std::string match = fs::is_directory(to) ? from + "/" : from;
        Paths moved;
        for (const std::string& row : rows)
            if (row.starts_with(match)) moved.insert(to + row.substr(from.size()));
        std::erase_if(rows, [&](const std::string& row) { return row.starts_with(match); });
        rows.merge(moved.empty() ? PhotosIn(to) : moved);
    }
    void Execute(const std::string& line) {
        const std::string path = line.substr(2);
        if (line[0] == 'N')
            Rename(path.substr(0, path.find(':')), path.substr(path.find(':') + 1));
        else if (line[0] == 'A' || line[0] == 'a')
            rows.merge(PhotosIn(path));
        else if (!fs::exists(path))
            RemoveTree(path);
    }
    void Compare(const std::string& path) {
        RemoveTree(path);
        rows.merge(PhotosIn(path));
    }
};

/// A small library with the watcher's parts around it, on a clock of its own.
class Scene {
  public:
    explicit Scene(unsigned seed) : log("seed " + std::to_string(seed) + "\n"), random_(seed) {
        EXPECT_TRUE(port_.Open());
        port_.WatchTree(tree_.AddTop(top_));
        daemon_.Compare(top_);
    }
    void Fill() const {
        for (const char* folder : {"d/e", "d2"})
            fs::create_directories(dir_.Path(folder));
        for (const char* file : {"a.jpg", "d/a.jpg", "d/b.jpg", "d/e/a.jpg", "d2/b.jpg"})
            dir_.Write(file, "x");
    }
    void Change();
    void Pass(int64_t milliseconds);
    void RunDaemon();
    unsigned Pick(unsigned count) { return static_cast<unsigned>(random_() % count); }
    void ExpectAgreement() {
        EXPECT_EQ(daemon_.rows, PhotosIn(top_)) << log;
        EXPECT_TRUE(pending_.empty()) << log;
        log.clear();
    }
    int compares = 0;
    std::string log;

  private:
    std::string AnyPath(bool is_folder) {
        constexpr const char *kFolders[] = {"/d", "/d2", "/e"}, *kFiles[] = {"/a.jpg", "/b.jpg", "/c.txt"};
        std::string path = top_;
        for (unsigned depth = Pick(3); depth > 0; --depth)
            path += kFolders[Pick(3)];
        return path + (is_folder ? kFolders : kFiles)[Pick(3)];
    }
    void Read() {
        EXPECT_TRUE(port_.Read([&](const FolderEvent& event) { fold_.Apply(event, now_); }));
    }

    std::mt19937 random_;
    test::TempDir dir_;
    const std::string& top_ = dir_.dir();
    FolderTree tree_;
    PendingChanges pending_{&tree_};
    InotifyPort port_{&tree_};
    EventFold fold_{&tree_, &pending_, &port_,
                    [](const std::string& name) { return name.ends_with(".jpg"); }};
    SentChanges sent_;
    Composer composer_;
    DaemonModel daemon_;
    std::string queue_;
    int64_t now_ = 1000;
};

/// Most of what is picked does not exist or is not allowed, and then nothing happens.
void Scene::Change() {
    const bool is_folder = Pick(3) == 0;
    const std::string path = AnyPath(is_folder), to = AnyPath(is_folder);
    const unsigned kind = Pick(4);
    std::error_code error;
    if (kind == 0 && is_folder)
        fs::create_directory(path, error);
    else if (kind == 0)
        std::ofstream(path) << "y";
    else if (kind == 1)
        fs::remove_all(path, error);
    else
        fs::rename(path, to, error);
    if (!error) log += std::array{"make ", "remove ", "move ", "move "}[kind] + path + " " + to + "\n";
    if (Pick(3) != 0) Read();
}

void Scene::Pass(int64_t milliseconds) {
    Read();
    fold_.Settle(now_);
    now_ += milliseconds;
    fold_.Settle(now_);
    for (const SettledChange& change : pending_.TakeDue(now_))
        for (const SettledChange& asked : sent_.Complete(change))
            composer_.Add(asked);
    const std::string lines = composer_.TakeLines();
    log += lines;
    queue_ += lines;
}

void Scene::RunDaemon() {
    log += "daemon\n";
    std::istringstream lines(std::exchange(queue_, {}));
    for (std::string line; std::getline(lines, line);)
        daemon_.Execute(line);
    if (sent_.Executed([](const std::string& path) { return fs::exists(path); })) composer_.AddCompare(top_);
    for (const std::string& folder : composer_.TakeCompares()) {
        log += "compare " + folder + "\n";
        daemon_.Compare(folder);
        ++compares;
    }
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
