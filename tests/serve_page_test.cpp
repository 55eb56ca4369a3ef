// The pages: what becomes of texts that anybody may have written.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "base/path_names.h"
#include "platform/host/database_groups.h"
#include "platform/kolidb.h"
#include "tests/host_temp_dir.h"
#include "tools/serve/http/target.h"
#include "tools/serve/page/markup.h"
#include "tools/serve/page/site.h"

namespace koli::serve {
namespace {

TEST(MarkupTest, TextsAreTextWhateverStandsInThem) {
    const std::map<std::string, std::string> shown = {
        {"<b a='1'>&amp;\"", "&lt;b a=&#39;1&#39;&gt;&amp;amp;&quot;"},
        {"Gr\xC3\xBC\xC3\x9F"
         "e \xF0\x9F\x8E\xB5\t\n",
         "Gr\xC3\xBC\xC3\x9F"
         "e \xF0\x9F\x8E\xB5\t\n"},
        {std::string("\0\x1B\x7F\r", 4), "\u2400\u241B\u2421\u240D"},
        {"\xC0\xAF\xED\xA0\x80\xE2\x82", "\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xC2\x85-\u202E\u2066\u2069-\u200F", "\uFFFD-\uFFFD\uFFFD\uFFFD-\u200F"}};
    for (const auto& [text, expected] : shown) {
        Markup plain, name, attribute;
        EXPECT_EQ(plain.Text(text).Take(), expected);
        EXPECT_EQ(name.Name(text).Take(), "<bdi>" + expected + "</bdi>");
        EXPECT_EQ(attribute.Attribute("a", text).Take(), " a=\"" + expected + "\"");
    }
}

TEST(AddressTest, EveryTextHasAnAddressThatGivesItBack) {
    for (const std::string& word : {std::string(""), std::string("-"), std::string(".."),
                                    std::string("AC/DC"), std::string("~e~s/~"), std::string("\0a\xFF%2f", 6),
                                    std::string("a+b?c#d&e=\"'<"), std::string("\xC3\xBC \xE9\x9F\xB3")}) {
        const Address address = Address("/music").Word(word);
        EXPECT_EQ(address.text().find_first_of("?#&\"'<> \xFF"), std::string::npos) << address.text();
        const auto segments = SegmentsOf(address.text());
        ASSERT_TRUE(segments && segments->size() == 2) << address.text();
        EXPECT_EQ(Unescaped(segments->back()), word);
    }
    const std::string path = "/volume1/~music/-/a b?%41.mp3";
    EXPECT_EQ(PathOf(*SegmentsOf(Address("/entry").Path(path).text()), 1), path);
    for (const char* none : {"-", "a~", "~x"})
        EXPECT_EQ(Unescaped(none), std::nullopt) << none;
}

constexpr char kHostile[] = "\"'><script>x</script>\u202E&amp;";

template <size_t N>
void Put(char (&field)[N], const std::string& text) {
    CopyText(field, N, text.c_str());
}

/// A song, a film and pictures whose every text is hostile.
void StoreHostileNames() {
    static constexpr const char* kEndings[] = {".mp3", ".avi", ".jpg", ".m3u"};
    for (const StoreType type : {kStoreMusic, kStoreVideo, kStorePhoto, kStorePlaylist}) {
        MediaInfo record{};
        Put(record.path, std::string("/volume1/music/") + kHostile + kEndings[type]);
        for (char* field : {record.title, record.artist, record.album, record.genre, record.camera_model})
            CopyText(field, sizeof kHostile, kHostile);
        ASSERT_EQ(MediaInfoDBSave(type, &record), 0);
    }
    for (const char* name : {"1.jpg", "2.jpg"}) {
        PhotoRecord record{};
        Put(record.path, std::string("/volume1/photo/Trip/") + name);
        Put(record.name, name);
        Put(record.title, kHostile);
        Put(record.description, kHostile);
        Put(record.date_taken, "2024:05:31 10:11:12");
        ASSERT_EQ(PhotoInfoDBSave(&record, 1), 0);
    }
    ASSERT_EQ(PhotoDBExec("INSERT INTO photo_share (sharename, title, public) VALUES ('Trip', '<b>', 't')"),
              1);
}

Request RequestFor(const std::string& address) {
    Request request;
    const size_t query = address.find('?'), equals = address.find('=');
    request.path = *SegmentsOf(address.substr(0, query));
    if (equals != std::string::npos)
        request.parameters.Add(address.substr(query + 1, equals - query - 1), address.substr(equals + 1));
    return request;
}

size_t Count(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

/// Looks at every page that can be reached from the first one; their addresses.
std::set<std::string> Crawl(const Library& library, bool is_kept) {
    std::set<std::string> seen = {"/"}, titles;
    std::vector<std::string> next(seen.begin(), seen.end());
    const AddressWriter writer = [&](const Address& address) {
        const std::string& text = address.text();
        const bool is_media = text.starts_with("/file/") || text.starts_with("/small/") ||
                              text.starts_with("/cover/") || text.starts_with("/assets/");
        if (!is_media && text.find('&') == std::string::npos && seen.insert(text).second)
            next.push_back(text);
        return text;
    };
    while (!next.empty()) {
        const std::string address = next.back();
        next.pop_back();
        const Request request = RequestFor(address);
        const Reply reply = SitePage({library, request, &writer, is_kept});
        EXPECT_EQ(reply.status, 200) << address;
        EXPECT_EQ(Count(reply.body, "<h1"), 1U) << address;
        EXPECT_EQ(Count(reply.body, "<script"), 1U) << address;
        EXPECT_EQ(reply.body.find("\u202E"), std::string::npos) << address;
        EXPECT_EQ(Count(reply.body, "<form"), is_kept ? 0U : 1U) << address;
        const size_t title = reply.body.find("<title>");
        const std::string name = reply.body.substr(title, reply.body.find("</title>") - title);
        EXPECT_TRUE(address.ends_with("?in=date") || titles.insert(name).second) << address << name;
    }
    return seen;
}

TEST(SiteTest, EveryPageOfHostileNamesIsWholeAndHasATitleOfItsOwn) {
    const test::TempDir dir;
    host::DatabaseDirectorySet(dir.dir().c_str());
    StoreHostileNames();
    KOLIDBSync();
    host::DatabaseDirectorySet(nullptr);
    ctl::Places places;
    places.databases = dir.dir();
    Library library(places);
    library.Start();
    ASSERT_TRUE(library.WaitUntilRead(60));
    const std::set<std::string> pages = Crawl(library, false), kept = Crawl(library, true);
    const std::string second = "/entry/volume1/photo/Trip/2.jpg";
    EXPECT_TRUE(pages.contains(second) && pages.contains(second + "?in=date"));
    EXPECT_TRUE(kept.contains(second) && !kept.contains(second + "?in=date"));
    const Request missing = RequestFor("/entry/volume1/photo/Trip/3.jpg");
    EXPECT_EQ(SitePage({library, missing}).status, 404);
}

}  // namespace
}  // namespace koli::serve
