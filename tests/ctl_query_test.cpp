// koliindexctl: what list, search and stats find, sort and count, and what is near to a mistyped word.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <sstream>

#include "base/path_names.h"
#include "base/text/fold.h"
#include "platform/host/database_groups.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "tests/host_place.h"
#include "tests/host_temp_dir.h"
#include "tools/ctl/suggestion.h"
#include "tools/koliindexctl/command_line.h"

namespace koli::ctl {
namespace {

using namespace std::string_literals;
using Texts = std::vector<std::string>;

class QueryTest : public testing::Test {
  protected:
    QueryTest() {
        test::MakeLibrary();
        host::DatabaseDirectorySet(databases_.c_str());
    }
    ~QueryTest() override { host::DatabaseDirectorySet(nullptr); }

    static void Store(
        int type, const std::string& path, const std::string& title,
        const std::function<void(MediaInfo&)>& fill = [](MediaInfo&) {}) {
        MediaInfo record{};
        CopyText(record.path, sizeof record.path, path.c_str());
        CopyText(record.title, sizeof record.title, title.c_str());
        fill(record);
        ASSERT_EQ(MediaInfoDBSave(type, &record), 0);
    }
    static void Song(const std::string& path, const std::string& title, uint32_t year = 0,
                     const std::string& artist = "") {
        Store(kStoreMusic, path, title, [&](MediaInfo& record) {
            record.year = year;
            record.file_size = 1000;
            record.duration = 1800;
            CopyText(record.artist, sizeof record.artist, artist.c_str());
        });
    }

    /// What the command prints; its exit code and complaint stay in `code_` and `complaint_`.
    std::string Run(Texts words) {
        KOLIDBSync();
        std::string name = "koliindexctl";
        std::vector<char*> argv{name.data()};
        for (std::string& word : words)
            argv.push_back(word.data());
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        code_ = CommandLineRun(static_cast<int>(argv.size()), argv.data());
        complaint_ = testing::internal::GetCapturedStderr();
        return testing::internal::GetCapturedStdout();
    }
    /// The paths that it finds, without "/v/" and separated by blanks.
    std::string Paths(Texts words) {
        words.emplace_back("--print0");
        std::string paths;
        std::istringstream found(Run(std::move(words)));
        for (std::string path; std::getline(found, path, '\0');)
            paths.append(paths.empty() ? "" : " ").append(path.substr(3));
        return paths;
    }

    const test::TempDir dir_;
    const std::string databases_ = test::PlaceOr(dir_.dir());
    int code_ = 0;
    std::string complaint_;
};

TEST_F(QueryTest, ListKeepsWhatEveryConditionHoldsFor) {
    Song("/v/a", "Gr\u00fc\u00dfe", 1999, "One");
    Song("/v/b", "Gru\u0308sse aus W", 2005, "one");
    Song("/v/c", "Grusse", 300, "\u00c9mile");
    Song("/v/d", "x' OR '1'='1", 0, "Zoe");
    for (const auto& [conditions, paths] :
         std::vector<std::pair<Texts, std::string>>{{{"title~GR\u00dcSSE"}, "a b"},
                                                    {{"title !~ gr\u00fcsse"}, "c d"},
                                                    {{"artist=One"}, "a"},
                                                    {{"artist!=One"}, "b c d"},
                                                    {{"artist<=ONE"}, "a b"},
                                                    {{"artist > p"}, "c d"},
                                                    {{"title=x' OR '1'='1"}, "d"},
                                                    {{"artist= One"}, ""},
                                                    {{"year>300"}, "a b"},
                                                    {{"year >= 300", "year<2005", "title~W"}, ""},
                                                    {{"year!=1999", "artist~N"}, "b"},
                                                    {{"year~0"}, "b c d"},
                                                    {{"duration<=1800.5", "year=3e2"}, "c"}}) {
        Texts words{"list"};
        for (const std::string& condition : conditions)
            words.insert(words.end(), {"--where", condition});
        EXPECT_EQ(Paths(words), paths) << words.back();
        EXPECT_EQ(code_, 0) << complaint_;
    }
    for (const char* refused :
         {"year>abc", "year=", "year=1x", "file_size=inf", "1=1 OR path=x", "title", "title!x", "=x"}) {
        Run({"list", "--where", refused});
        EXPECT_EQ(code_, 2) << refused;
    }
}

TEST_F(QueryTest, TextsAreSortedByTheirKeysInEveryDatabase) {
    const Texts pieces = {"a",      "B",      "Z",      "-",      "_",           " ",       "!",
                          "~",      "0",      "\u00df", "\u1e9e", "\u00c9",      "e\u0301", "\u03a3",
                          "\u03c2", "\u0130", "\ufb01", "\u0416", "\u0451",      "\u7b2c",  "\u00ad",
                          "\u200d", "\uff26", "\u0301", "\u2460", "\u0915\u093f"};
    std::mt19937 chance(14);
    std::vector<std::pair<std::string, std::string>> keys;
    for (int number = 100; number < 400; ++number) {
        std::string title = "t", key;
        for (auto left = chance() % 5; left > 0; --left)
            title += pieces[chance() % pieces.size()];
        Song("/v/" + std::to_string(number), title);
        SortKeyTo(title, &key);
        keys.emplace_back(key, std::to_string(number));
    }
    std::sort(keys.begin(), keys.end());
    std::string sorted;
    for (const auto& [key, path] : keys)
        sorted.append(sorted.empty() ? "" : " ").append(path);
    EXPECT_EQ(Paths({"list", "--sort", "title"}), sorted);
}

TEST_F(QueryTest, ListSortsCutsAndCounts) {
    Song("/v/1", "\u00e9b", 300);
    Song("/v/2", "Zoo\x1B", 2005);
    Song("/v/3", "E\u0301a", 1999);
    Song("/v/4", "zoo\x1B", 7);
    Store(kStorePhoto, "/v/p", "A");
    EXPECT_EQ(Paths({"list", "--sort", "title"}), "3 1 2 4 p");
    EXPECT_EQ(Paths({"list", "--sort", "year", "--reverse", "--limit", "3"}), "2 3 1 p");
    EXPECT_EQ(Paths({"list", "--reverse", "--where", "title~zOO", "--limit", "1"}), "4");
    EXPECT_EQ(Run({"list", "--columns", "year,kind,title", "--where", "year=7"}),
              "year  kind   title\n7     music  zoo\\x1B\n");
    EXPECT_EQ(Run({"list", "--columns", "path,year", "--json", "--where", "year=7"}),
              "[\n{\"path\":\"/v/4\",\"year\":7}\n]\n");
    EXPECT_EQ(Run({"list", "--count", "--where", "title>a"}), "4 in all: 4 music\n");
    EXPECT_EQ(Run({"list", "--count", "--json", "--kind", "photo"}),
              "{\n  \"photo\": 1,\n  \"total\": 1\n}\n");
    for (const Texts& refused : {Texts{"--sort", "kind"}, {"--columns", "title,1"}, {"--print0", "--json"}}) {
        Texts words{"list"};
        words.insert(words.end(), refused.begin(), refused.end());
        Run(words);
        EXPECT_EQ(code_, 2) << refused.back();
    }
    for (const char* command : {"list", "problems"}) {
        Run({command, "--below", "/v"});
        EXPECT_EQ(std::pair(code_, complaint_), std::pair(0, ""s));
        Run({command, "--below", "/w"});
        EXPECT_EQ(std::pair(code_, complaint_),
                  std::pair(1, "koliindexctl: nothing is stored at or below /w\n"s));
    }
}

TEST_F(QueryTest, SearchFindsEveryWordWhereverItStands) {
    Song("/v/Mond/a.mp3", "Moonlight", 0, "Bj\u00f6rk");
    Song("/v/b\xE9s sonata.mp3", "Moon LIGHT");
    Store(kStorePhoto, "/v/p.jpg", "IMG");
    Store(kStorePhoto, "/v/q.jpg", "moonlight");
    PhotoRecord photo{};
    for (const char* path : {"/v/o.jpg", "/v/p.jpg"}) {  // the first one is not in the media store
        CopyText(photo.path, sizeof photo.path, path);
        CopyText(photo.description, sizeof photo.description, "by Moonlight");
        ASSERT_EQ(PhotoInfoDBSave(&photo, 1), 0);
    }
    ASSERT_EQ(MediaInfoDBDirSave("/v/Mond"), 0);
    for (const auto& [texts, paths] : std::vector<std::pair<Texts, std::string>>{
             {{"MOONLIGHT"}, "Mond/a.mp3 o.jpg p.jpg q.jpg"},
             {{"light moon", "sonata"}, "b\xE9s sonata.mp3"},
             {{"BJO\u0308RK"}, "Mond/a.mp3"},
             {{"\xE9S"}, "b\xE9s sonata.mp3"},
             {{"mond"}, "Mond"},
             {{"by", "--limit", "1"}, "o.jpg"},
             {{"moon", "--kind", "photo", "--below", "/v/q.jpg"}, "q.jpg"}}) {
        Texts words{"search"};
        words.insert(words.end(), texts.begin(), texts.end());
        EXPECT_EQ(Paths(words), paths);
        EXPECT_EQ(code_, 0);
    }
    EXPECT_EQ(Run({"search", "--count", "moon"}), "5 in all: 2 music, 3 photo\n");
    EXPECT_EQ(Run({"search", "bj\u00f6rk"}),
              "kind   title      artist  album  path\nmusic  Moonlight  Bj\u00f6rk          /v/Mond/a.mp3\n");
    for (const auto& [text, code] : {std::pair("nothing", 1), {" ", 2}}) {
        EXPECT_EQ(Run({"search", text}), "");
        EXPECT_EQ(code_, code);
    }
}

TEST_F(QueryTest, StatsCountWhatIsStored) {
    Song("/v/m/a.mp3", "1", 1990, "One");
    Song("/v/m/b.MP3", "2", 1999, "one");
    Song("/v/n/c.flac", "3", 2005, "One");
    for (const char* model : {"X1", ""})
        Store(kStorePhoto, "/v/p/"s + model + ".jpg", "p", [&](MediaInfo& record) {
            CopyText(record.camera_make, sizeof record.camera_make, "Maker");
            CopyText(record.camera_model, sizeof record.camera_model, model);
            CopyText(record.date_taken, sizeof record.date_taken, "2019:07:01 10:00:00");
        });
    const std::string all = Run({"stats", "--json"});
    for (
        const char* part :
        {R"("totals": {"artists":2,"albums":0,"genres":0,"cameras":2,"photo_albums":0,"folders":0,"problems":0})",
         R"({"kind":"music","files":3,"bytes":3000,"hours":1.5})",
         R"({"kind":"music","format":"mp3","files":2,"bytes":2000},
  {"kind":"music","format":"flac","files":1,"bytes":1000})",
         R"({"year":1990,"files":1},
  {"year":1999,"files":1})",
         R"("artists": [
  {"artist":"One","files":2},
  {"artist":"one","files":1}
])",
         R"({"camera":"Maker","files":1})", R"("years_taken": [
  {"year":2019,"files":2}
])"})
        EXPECT_NE(all.find(part), std::string::npos) << part << all;
    const std::string shown = Run({"stats"});
    for (const char* part :
         {"music     3      2.9 KiB  1.5\n", "music of  files\n1990s     2\n2000s     1\n"})
        EXPECT_NE(shown.find(part), std::string::npos) << part << shown;
    EXPECT_NE(Run({"stats", "--json", "--below", "/v/n/"}).find(R"("artists":1,)"), std::string::npos);
    EXPECT_EQ(Run({"stats", "--below", "/v/x"}), "");
    EXPECT_EQ(code_, 1);
}

TEST(Suggestion, IsWhatAMistypedWordIsNearestTo) {
    const Texts words{"add", "list", "problems", "rebuild", "remove", "rename", "status", "sync"};
    for (const auto& [word, meant] : {std::pair{"lits", "list"},
                                      {"LIST", "list"},
                                      {"snyc", "sync"},
                                      {"ad", "add"},
                                      {"prob", "problems"},
                                      {"re", ""},
                                      {"statsu", "status"},
                                      {"find", ""},
                                      {"xyz", ""},
                                      {"", ""},
                                      {"rebiuldd", "rebuild"},
                                      {"renam", "rename"}})
        EXPECT_EQ(Suggestion(word, words), meant) << word;
    EXPECT_EQ(Suggestion(std::string(100000, 'l'), words), "");
}

}  // namespace
}  // namespace koli::ctl
