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

bool IsThing(const std::string& path) {
    return path.ends_with(".jpg") || fs::is_directory(path);
}

/// All that is stored of what is at or below a path.
Rows ThingsIn(const std::string& path) {
    Rows things;
    if (IsThing(path) && fs::exists(path)) things[path] = RowOf(path);
    if (fs::is_directory(path))
        for (const auto& entry : fs::recursive_directory_iterator(path))
            if (IsThing(entry.path())) things[entry.path()] = RowOf(entry.path());
    return things;
}

/// The photo library as requests change it, with a row for each picture and each folder: the disk is looked
/// at when a request is executed.  A row has the number of the thing that was given its caption or its
/// rights, 0 or less without.
struct DaemonModel {
    Rows rows;
    std::set<int> given;

    void Add(const std::string& path) {
        for (const auto& [thing, row] : ThingsIn(path))
            rows.try_emplace(thing, given.contains(row.id) ? -row.id : 0).first->second.version = row.version;
    }
    void GiveAll() {
        for (auto& [path, row] : rows)
            given.insert(row.id = RowOf(path).id);
    }
    void RemoveGone(const std::string& path) {
        std::erase_if(
            rows, [&](const auto& row) { return IsAtOrBelow(row.first, path) && !fs::exists(row.first); });
    }
    void Rename(const std::string& to, const std::string& from) {
        EXPECT_NE(to, from);
        const bool is_file = fs::is_regular_file(to) || (!fs::exists(to) && from.ends_with(".jpg"));
        if (is_file && rows.contains(from) && !fs::exists(from)) rows.erase(to);
        Rows moved;
        for (const auto& [row, stored] : rows)
            if (IsAtOrBelow(row, from)) moved[row] = stored;
        for (const auto& [row, stored] : moved) {
            const std::string target = MovedPath(row, from, to);
            if (fs::exists(row) && rows.contains(target)) continue;
            rows.erase(row);
            rows[target] = stored;
        }
        if (moved.empty()) Add(to);
    }
    void Execute(const std::string& line) {
        const std::string path = line.substr(2);
        if (line[0] == 'N')
            Rename(path.substr(0, path.find(':')), path.substr(path.find(':') + 1));
        else if (line[0] == 'A' || line[0] == 'a')
            Add(path);
        else if (!fs::exists(path))
            RemoveGone(path);
    }
    void Compare(const std::string& path) {
        RemoveGone(path);
        Add(path);
    }
};

/// A small library with its watcher, on a clock of its own.
class Scene : public RequestSink {
  public:
    explicit Scene(unsigned seed) : log("seed " + std::to_string(seed) + "\n"), random_(seed) {
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
    const test::TempDir volume_{test::NewVolume()};
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
    const Rows things = ThingsIn(top_);
    ASSERT_EQ(daemon_.rows.size(), things.size()) << log;
    for (const auto& [path, row] : things) {
        const bool is_new = !daemon_.given.contains(row.id);  // it may have the caption of what it replaced
        EXPECT_EQ(is_new ? row.id : daemon_.rows[path].id, row.id) << path << "\n" << log;
        EXPECT_EQ(daemon_.rows[path].version, row.version) << path << "\n" << log;
    }
    daemon_.GiveAll();
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
