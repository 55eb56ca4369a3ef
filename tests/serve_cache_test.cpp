// The cache of small pictures.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/host_temp_dir.h"
#include "tools/serve/picture/picture_cache.h"

namespace koli::serve::test {

using namespace koli::test;

struct Cache : testing::Test {
    Cache() {
        std::string error;
        EXPECT_TRUE(cache_.Open(path_, 1 << 20, &error)) << error;
    }
    /// The files, by name.
    std::vector<std::string> Files() const {
        std::vector<std::string> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(path_))
            if (entry.is_regular_file()) files.push_back(entry.path());
        return files;
    }

    const TempDir folder_;
    const std::string path_ = folder_.Path("new/small");
    PictureCache cache_;
};

TEST_F(Cache, FindsWhatItKeptAndNothingThatWasPutThere) {
    cache_.Keep("160 1 a.jpg", "first");
    EXPECT_EQ(cache_.Find("160 1 a.jpg"), "first");
    EXPECT_EQ(cache_.Find("160 2 a.jpg"), std::nullopt);
    const std::string file = Files().at(0), whole = ReadFile(file);
    const std::string others[] = {"",
                                  whole.substr(0, whole.size() - 1),
                                  whole + "x",
                                  whole.substr(0, 10),
                                  std::string(whole).replace(whole.size() - 5, 5, 5, '\0'),
                                  std::string(whole).replace(whole.find("a.jpg"), 1, "b"),
                                  std::string(whole).replace(8, 4, "\xff\xff\xff\xff")};
    for (const std::string& bytes : others) {
        std::ofstream(file, std::ios::binary) << bytes;
        EXPECT_EQ(cache_.Find("160 1 a.jpg"), std::nullopt);
    }
    std::filesystem::remove(file);
    const std::string elsewhere = folder_.Write("elsewhere", whole);
    std::filesystem::create_symlink(elsewhere, file);
    EXPECT_EQ(cache_.Find("160 1 a.jpg"), std::nullopt);
    cache_.Keep("160 1 a.jpg", "second");
    EXPECT_EQ(cache_.Find("160 1 a.jpg"), "second");
    EXPECT_EQ(ReadFile(elsewhere), whole);
    std::filesystem::remove(file);
    mkfifo(file.c_str(), 0600);
    EXPECT_EQ(cache_.Find("160 1 a.jpg"), std::nullopt);
}

TEST_F(Cache, IsSharedStaysInItsFolderAndLeavesNothingHalf) {
    PictureCache second;
    std::string error;
    ASSERT_TRUE(second.Open(path_, 1 << 20, &error)) << error;
    cache_.Keep("a", "picture");
    EXPECT_EQ(second.Find("a"), "picture");
    second.Keep("a", "another");
    EXPECT_EQ(cache_.Find("a"), "another");

    signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit full{100, before.rlim_max};  // what a full disk looks like
    setrlimit(RLIMIT_FSIZE, &full);
    cache_.Keep("a", std::string(5000, 'x'));
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(Files().size(), 1U);
    EXPECT_EQ(cache_.Find("a"), "another");

    const std::filesystem::path file = Files().at(0), moved = folder_.Path("moved");
    std::filesystem::rename(file.parent_path(), moved);
    std::filesystem::create_directory_symlink(moved, file.parent_path());
    EXPECT_EQ(cache_.Find("a"), std::nullopt);
    std::filesystem::remove(moved / file.filename());
    cache_.Keep("a", "third");
    EXPECT_TRUE(std::filesystem::is_empty(moved));
}

TEST_F(Cache, IsForOneUserAndDoesWithoutAFolder) {
    PictureCache none;
    std::string error;
    chmod(path_.c_str(), 0777);
    EXPECT_FALSE(none.Open(path_, 1 << 20, &error));
    EXPECT_EQ(error, "others may write to it");
    std::filesystem::create_directory_symlink(path_, folder_.Path("link"));
    EXPECT_FALSE(none.Open(folder_.Path("link"), 1 << 20, &error));
    none.Keep("a", "b");
    EXPECT_EQ(none.Find("a"), std::nullopt);
}

TEST_F(Cache, RemovesTheLongestUnusedAboveItsBound) {
    const std::string picture(20000, 'x');
    const auto age = [](const std::string& file, time_t seconds) {
        const timespec times[] = {{time(nullptr) - seconds, 0}, {time(nullptr) - seconds, 0}};
        utimensat(AT_FDCWD, file.c_str(), times, 0);
    };
    for (const char* key : {"used", "unused"})
        cache_.Keep(key, picture);
    for (const std::string& file : Files())
        age(file, 100000);
    EXPECT_TRUE(cache_.Find("used"));
    const std::string other = folder_.Write("new/small/00/notes.txt", "mine");
    std::set<std::string> aged;  // in the order in which they were kept: a clock may stand still between two
    for (int i = 0; i < 100; ++i) {
        cache_.Keep(std::to_string(i), picture);
        for (const std::string& file : Files())
            if (aged.insert(file).second) age(file, 1000 - i);
    }
    const auto bytes = [&] { return (Files().size() - 1) * 20480; };
    for (int i = 0; i < 1000 && bytes() > (1 << 20); ++i)
        usleep(10000);
    EXPECT_LE(bytes(), 1U << 20);
    EXPECT_GT(bytes(), 1U << 19);
    EXPECT_EQ(cache_.Find("unused"), std::nullopt);
    EXPECT_TRUE(cache_.Find("99"));
    EXPECT_EQ(ReadFile(other), "mine");
}

}  // namespace koli::serve::test
