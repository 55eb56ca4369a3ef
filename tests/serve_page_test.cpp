// The pages: what becomes of texts that anybody may have written.
#include <gtest/gtest.h>

#include <map>

#include "tools/serve/http/target.h"
#include "tools/serve/page/markup.h"

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

}  // namespace
}  // namespace koli::serve
