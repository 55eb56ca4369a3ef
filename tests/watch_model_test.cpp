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

/// The two stores as the daemon's requests change them: looked up on the disk when a request is executed.
struct DaemonModel {
    std::set<std::string> media, photo;

    static std::set<std::string> FilesIn(const std::string& path) {
        std::set<std::string> files;
        if (fs::is_regular_file(path)) files.insert(path);
        if (fs::is_directory(path))
            for (const auto& entry : fs::recursive_directory_iterator(path))
                if (entry.is_regular_file()) files.insert(entry.path());
        std::erase_if(files, [](const std::string& file) { return !file.ends_with(".jpg"); });
        return files;
    }
    static void RemoveTree(std::set<std::string>* rows, const std::string& path) {
        std::erase_if(*rows, [&](const std::string& row) { return IsAtOrBelowPath(row, path); });
    }
    /// Rows of the photo library follow every path that begins with the old one; without rows the new path is
    /// added.
    void MovePhotos(const std::string& to, const std::string& from, const std::string& match) {
        std::set<std::string> moved;
        std::erase_if(photo, [&](const std::string& row) {
            if (row.starts_with(match)) moved.insert(to + row.substr(from.size()));
            return row.starts_with(match);
        });
        photo.merge(moved.empty() ? FilesIn(to) : moved);
    }
    void Rename(const std::string& to, const std::string& from) {
        const bool is_folder = fs::is_directory(to);
        if (is_folder || !fs::exists(from)) RemoveTree(&media, from);
        media.merge(FilesIn(to));
        MovePhotos(to, from, is_folder ? from + "/" : from);
    }
    void Execute(const std::string& line) {
        const std::string path = line.substr(2);
        if (line[0] == 'N') {
            Rename(path.substr(0, path.find(':')), path.substr(path.find(':') + 1));
        } else if (line[0] == 'A' || line[0] == 'a') {
            media.merge(FilesIn(path));
            photo.merge(FilesIn(path));
        } else if (!fs::exists(path)) {
            RemoveTree(&media, path);
            RemoveTree(&photo, path);
        }
    }
    void Compare(const std::string& path) {
        RemoveTree(&media, path);
        RemoveTree(&photo, path);
        media.merge(FilesIn(path));
        photo.merge(FilesIn(path));
    }
};

/// A small library with the watcher's parts around it, on a clock of its own.
class Scene {
  public:
    explicit Scene(unsigned seed) : random_(seed) {
        for (const char* folder : {"d", "d/e", "d2"})
            fs::create_directories(dir_.Path(folder));
        for (const char* file : {"a.jpg", "d/a.jpg", "d/b.jpg", "d/e/a.jpg", "d2/b.jpg"})
            dir_.Write(file, "x");
        EXPECT_TRUE(port_.Open());
        port_.WatchTree(tree_.AddTop(top_));
        daemon_.Compare(top_);
    }
    void Change();
    void Pass(int64_t milliseconds);
    void RunDaemon();
    unsigned Pick(unsigned count) { return static_cast<unsigned>(random_() % count); }
    std::string State() const;
    bool AgreesWithDisk() const {
        const auto files = DaemonModel::FilesIn(top_);
        return daemon_.media == files && daemon_.photo == files && pending_.empty();
    }
    int compares = 0;
    std::string log;

  private:
    std::string AnyPath(bool is_folder) {
        std::string path = top_;
        for (unsigned depth = Pick(3); depth > 0; --depth)
            path += std::string("/") + std::array{"d", "d2", "e"}[Pick(3)];
        return path + "/" +
               (is_folder ? std::array{"d", "d2", "e"} : std::array{"a.jpg", "b.jpg", "c.txt"})[Pick(3)];
    }
    void Read() {
        EXPECT_TRUE(port_.Read([&](const FolderEvent& event) { fold_.Apply(event, now_); }));
    }

    std::mt19937 random_;
    test::TempDir dir_;
    std::string top_ = dir_.Path("d").substr(0, dir_.Path("d").size() - 2);
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
    const std::string path = AnyPath(is_folder);
    std::error_code error;
    switch (Pick(4)) {
        case 0:
            if (!fs::is_directory(fs::path(path).parent_path())) return;
            if (is_folder)
                fs::create_directory(path, error);
            else
                std::ofstream(path) << "y";
            log += "make " + path + "\n";
            break;
        case 1:
            if (fs::remove_all(path, error) > 0 && !error) log += "remove " + path + "\n";
            break;
        default: {
            const std::string to = AnyPath(is_folder);
            fs::rename(path, to, error);
            if (!error) log += "move " + path + " " + to + "\n";
        }
    }
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

std::string Scene::State() const {
    std::string state = log;
    for (const auto& [name, rows] :
         {std::pair{"disk", DaemonModel::FilesIn(top_)}, {"media", daemon_.media}, {"photo", daemon_.photo}})
        for (const std::string& row : rows)
            state += std::string(name) + " " + row + "\n";
    return state;
}

constexpr int kSteps = 12;  // of a game

/// Returns the number of comparisons.
int Play(unsigned seed, bool daemon_keeps_up) {
    Scene scene(seed);
    for (int step = 0; step < kSteps; ++step) {
        for (unsigned changes = 1 + scene.Pick(12); changes > 0; --changes)
            scene.Change();
        scene.Pass(daemon_keeps_up ? 2 * kLongest : scene.Pick(2 * kQuiet));
        if (daemon_keeps_up || scene.Pick(5) == 0) scene.RunDaemon();
    }
    for (int i = 0; i < 3; ++i) {
        scene.Pass(2 * kLongest);
        scene.RunDaemon();
    }
    EXPECT_TRUE(scene.AgreesWithDisk())
        << "seed " << seed << (daemon_keeps_up ? " quick\n" : " slow\n") << scene.State();
    return scene.compares;
}

TEST(WatchModelTest, TheStoresFollowTheDisk) {
    constexpr unsigned kGames = 100;
    int compares = 0;
    for (unsigned seed = 1; seed <= kGames && !testing::Test::HasFailure(); ++seed) {
        compares += Play(seed, true);
        Play(seed, false);
    }
    // Comparisons must not be what makes it right: they belong to less than one step in twenty.
    EXPECT_LT(compares, static_cast<int>(kGames) * kSteps / 20);
}

}  // namespace
}  // namespace koli::watch
