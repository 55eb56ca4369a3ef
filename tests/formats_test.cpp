// What is told of the formats elsewhere, against their table.
#include "base/formats.h"

#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <utility>

namespace koli::test {
namespace {

std::string Read(const std::string& file) {
    std::ifstream stream(KOLI_SOURCE_DIR + ("/" + file));
    EXPECT_TRUE(stream) << file;
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// The README's table "Formats and fields": extensions by table of the store.  A row without a table goes on
/// with the one above.
std::map<std::string, std::multiset<std::string>> ToldFormats() {
    std::map<std::string, std::multiset<std::string>> told;
    std::istringstream readme(Read("README.md"));
    std::string line, table;
    while (std::getline(readme, line) && line != "## Formats and fields") {
    }
    while (std::getline(readme, line) && !line.starts_with("## ")) {
        if (!line.starts_with("| ")) continue;
        const size_t cell = line.find('|', 1);
        if (cell > 3) table = line.substr(3, cell - 5);  // within "| `" and "` |"
        std::istringstream words(line.substr(cell + 1, line.find('|', cell + 1) - cell - 1));
        for (std::string word; words >> word;)
            told[table].insert(word.substr(0, word.find(',')));
    }
    return told;
}

}  // namespace

TEST(Formats, AreThoseOfTheReadme) {
    const std::map<StoreType, std::string> tables{
        {kStoreMusic, "music"}, {kStoreVideo, "video"}, {kStorePhoto, "photo"}, {kStorePlaylist, "playlist"}};
    std::map<std::string, std::multiset<std::string>> known;
    for (const Format& format : Formats())
        known[tables.at(FormatStore(format.reader))].insert(format.extension);
    const auto told = ToldFormats();
    for (const auto& [table, extensions] : known) {
        ASSERT_TRUE(told.contains(table)) << table;
        EXPECT_EQ(told.at(table), extensions) << table;
    }
}

TEST(Formats, EachHasASample) {
    std::set<std::string> words;
    std::string word;
    for (const char letter : Read("script/make-samples") + ' ') {
        const bool is_inside = std::isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '-';
        if (!is_inside)
            words.insert(std::exchange(word, {}));
        else
            word += letter;
    }
    for (const Format& format : Formats())
        EXPECT_TRUE(words.contains(format.extension)) << format.extension;
}

}  // namespace koli::test
