// Preparing a machine and taking it back, below a root of the test's own.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "host_temp_dir.h"
#include "tools/ctl/setup.h"

namespace koli::ctl {
namespace {

namespace fs = std::filesystem;

class SetupTest : public testing::Test {
  protected:
    SetupTest() {
        for (const char* folder : {"var/lib", "var/spool", "etc", "volume1/video"})
            fs::create_directories(dir_.Path(folder));
        dir_.Write("etc/koliinfo.conf", "albumdefpublic=yes\n");
        dir_.Write("volume1/video/film.mkv", "x");
    }
    int Run(bool apply, bool undo, const std::string& volume = "/volume1") {
        return ctl::Setup({}, volume, {apply, undo, {fs::path(dir_.Path("")).parent_path()}});
    }
    std::set<fs::path> Tree() const { return {fs::recursive_directory_iterator(dir_.Path("")), {}}; }
    test::TempDir dir_;
};

TEST_F(SetupTest, DoesWhatItShowsAndTakesExactlyThatBack) {
    const auto before = Tree();
    EXPECT_EQ(Run(false, false), kExitDifferences);
    EXPECT_EQ(Tree(), before) << "showing changes nothing";
    EXPECT_EQ(Run(true, false), kExitDone);
    EXPECT_EQ(fs::read_symlink(dir_.Path("var/services/photo")), "/volume1/photo");
    EXPECT_TRUE(fs::is_regular_file(dir_.Path("etc.defaults/koliinfo.conf")));
    EXPECT_EQ(fs::file_size(dir_.Path("etc/koliinfo.conf")), 19u) << "what was there stays";
    const auto applied = Tree();
    EXPECT_EQ(Run(true, false), kExitDone);
    const std::string record = dir_.Path("var/lib/koli/setup.manifest"), good = record + ".good";
    fs::copy_file(record, good);
    dir_.Write("var/lib/koli/setup.manifest", "folder\t/volume1/video\nfile\t/volume1/video/film.mkv\n");
    EXPECT_EQ(Run(false, true), kExitFiles);
    fs::rename(good, record);
    EXPECT_EQ(Tree(), applied) << "neither a second time nor a damaged record changes anything";
    EXPECT_EQ(Run(false, true), kExitDone);
    EXPECT_EQ(Tree(), before);
    EXPECT_EQ(Run(false, true), kExitFiles) << "nothing is recorded any more";

    for (const char* volume : {"/missing", "/"})
        EXPECT_EQ(Run(true, false, volume), kExitUsage);
    dir_.Write("volume1/photo", "a file");
    EXPECT_EQ(Run(true, false), kExitFiles);
    fs::remove(dir_.Path("volume1/photo"));
    EXPECT_EQ(Tree(), before) << "all or nothing";
}

TEST_F(SetupTest, WhatHasBeenUsedSinceStays) {
    ASSERT_EQ(Run(true, false), kExitDone);
    dir_.Write("volume1/music/song.mp3", "x");
    dir_.Write("etc.defaults/koliinfo.conf", "supportphoto=no\n");
    dir_.Write("var/lib/koli/media.db", "rows");
    fs::remove(dir_.Path("var/services/video"));
    fs::create_symlink("/elsewhere", dir_.Path("var/services/video"));
    EXPECT_EQ(Run(false, true), kExitDifferences);
    EXPECT_FALSE(fs::is_symlink(dir_.Path("var/services/music")));
    for (const char* kept : {"volume1/music/song.mp3", "etc.defaults/koliinfo.conf", "var/lib/koli/media.db",
                             "var/services/video"})
        EXPECT_TRUE(fs::remove(dir_.Path(kept))) << kept;
    EXPECT_EQ(Run(false, true), kExitDone) << "now that it is out of the way";
    EXPECT_FALSE(fs::exists(dir_.Path("var/lib/koli")) || fs::exists(dir_.Path("volume1/music")));
}

}  // namespace
}  // namespace koli::ctl
