// The pages as files: every link leads to a file, and what does not become whole leaves nothing behind.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <set>

#include "base/path_names.h"
#include "platform/host/database_groups.h"
#include "platform/kolidb.h"
#include "tests/host_temp_dir.h"
#include "tools/koliindexserve/kept_site.h"

namespace koli::serve {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

class KeptSiteTest : public testing::Test {
  protected:
    KeptSiteTest() {
        host::DatabaseDirectorySet(databases_.dir().c_str());
        const std::string names[] = {std::string(251, 'x') + ".mp3",
                                     "\"><script>.mp3",
                                     "a\nb.mp3",
                                     "..mp3",
                                     "%2e%2e%2F.mp3",
                                     "\xFF\xFE.mp3",
                                     "a?b=c&d#e.mp3",
                                     "\xE5\xA4\x9C.mp3",
                                     "file:x y.mp3"};
        for (const std::string& name : names) {
            MediaInfo song{};
            CopyText(song.path, sizeof song.path, ("/volume1/music/" + name).c_str());
            CopyText(song.album, sizeof song.album, name.c_str());
            CopyText(song.artist, sizeof song.artist, "../..");
            song.has_cover = 1;
            EXPECT_EQ(MediaInfoDBSave(kStoreMusic, &song), 0);
        }
        for (int i = 0; i < kPictures; ++i) {
            PhotoRecord picture{};
            const std::string path = "/volume1/photo/Trip/" + std::to_string(i) + ".jpg";
            CopyText(picture.path, sizeof picture.path, path.c_str());
            EXPECT_EQ(PhotoInfoDBSave(&picture, 1), 0);
        }
        PhotoDBExec("INSERT INTO photo_share (sharename, public) VALUES ('Trip', 't')");
        KOLIDBSync();
        host::DatabaseDirectorySet(nullptr);
        ctl::Places places;
        places.databases = databases_.dir();
        library_ = std::make_unique<Library>(places);
        library_->Start();
        EXPECT_TRUE(library_->WaitUntilRead(60));
        library_->Stop();
    }

    bool Keep(
        const std::string& folder, const std::function<bool()>& is_wanted = [] { return true; }) {
        Pictures none;
        return KeepSite(*library_, none, folder, is_wanted, &error_);
    }
    /// The values of the attributes that hold addresses.
    static std::vector<std::string> AddressesIn(const std::string& page) {
        std::vector<std::string> addresses;
        for (const std::string& name : {" href=\""s, " src=\""s, " poster=\""s, " data-live=\""s})
            for (size_t at = 0; (at = page.find(name, at)) != std::string::npos;) {
                at += name.size();
                addresses.push_back(page.substr(at, page.find('"', at) - at));
            }
        return addresses;
    }
    /// The files that one leads to from the start, below `site`; a link that leads nowhere fails the test.
    static std::set<fs::path> Reached(const fs::path& site) {
        std::set<fs::path> reached{site / "index.html"};
        std::vector<fs::path> pages{site / "index.html"};
        while (!pages.empty()) {
            const fs::path page = pages.back();
            pages.pop_back();
            for (const std::string& address : AddressesIn(test::ReadFile(page))) {
                if (address.starts_with("file:///volume1/") || address.starts_with("#")) continue;
                const fs::path to = (page.parent_path() / address).lexically_normal();
                EXPECT_TRUE(to.string().starts_with(site.string() + "/") && fs::is_regular_file(to))
                    << page << " names " << address;
                if (reached.insert(to).second && to.extension() == ".html") pages.push_back(to);
            }
        }
        return reached;
    }

    static constexpr int kPictures = 130;  // over two pieces of a list
    const test::TempDir databases_, dir_;
    std::unique_ptr<Library> library_;
    std::string error_;
};

TEST_F(KeptSiteTest, EveryLinkLeadsToAFile) {
    // By a link to an empty folder, as by its name.
    const std::string site = dir_.MakeDir("site");
    fs::create_directory_symlink(site, dir_.Path("link"));
    ASSERT_TRUE(Keep(dir_.Path("link") + "/")) << error_;
    const std::set<fs::path> reached = Reached(site);
    size_t files = 0;
    std::set<std::string> titles;
    for (const auto& entry : fs::recursive_directory_iterator(site)) {
        if (!entry.is_regular_file()) continue;
        ++files;
        EXPECT_LE(entry.path().filename().string().size(), 40U);
        const std::string text = test::ReadFile(entry.path());
        if (entry.path().extension() == ".html")
            titles.insert(text.substr(text.find("<title>"), text.find("</title>") - text.find("<title>")));
    }
    EXPECT_EQ(reached.size(), files);
    EXPECT_GT(titles.size(), kPictures + 9U);  // each file has its page
}

TEST_F(KeptSiteTest, WhatDoesNotBecomeWholeLeavesNothingBehind) {
    dir_.Write("full/file", "x");
    dir_.Write("file", "");
    for (const std::string& place :
         {dir_.Path("full"), dir_.Path("file"), dir_.Path("no/folder"), ""s, "/"s, "/proc"s})
        EXPECT_FALSE(Keep(place)) << place;
    int files = 0;
    EXPECT_FALSE(Keep(dir_.Path("site"), [&files] { return ++files < 20; }));
    EXPECT_EQ(error_, "interrupted");

    // No file may become large: as on a full disk.
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit{}, before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    limit = before;
    limit.rlim_cur = 3000;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    EXPECT_FALSE(Keep(dir_.Path("site")));
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_TRUE(error_.ends_with("File too large")) << error_;

    std::set<std::string> left;
    for (const auto& entry : fs::directory_iterator(dir_.dir()))
        left.insert(entry.path().filename());
    EXPECT_EQ(left, (std::set<std::string>{"file", "full"}));
    EXPECT_TRUE(Keep(dir_.Path("site"))) << error_;
}

}  // namespace
}  // namespace koli::serve
