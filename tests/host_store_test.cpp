// The databases of the host platform.
#include <gtest/gtest.h>

#include "platform/host/sql_dialect.h"
#include "platform/host/text_utf8.h"

namespace koli::host {
namespace {

using namespace std::string_literals;

TEST(TextUtf8, ConvertsUtf16AndSingleBytesAndDropsCutTails) {
    const auto utf16 = [](const std::string& bytes) { return Utf8FromUtf16(Utf16Text(bytes)); };
    EXPECT_EQ(utf16("\xFE\xFF\0A\x04\x16\xD8\x3D\xDE\0"s), "A\u0416\U0001F600");
    EXPECT_EQ(utf16("\xFF\xFE"
                    "A\0\x16\x04\x3D\xD8\0\xDE\0\0B\0"s),
              "A\u0416\U0001F600");
    // A low surrogate first, a high one before an ordinary unit, a high one at the end, half a unit.
    EXPECT_EQ(utf16("\xFE\xFF\xDC\0\xD8\0\0A\xD8\0\0"s), "\uFFFD\uFFFDA\uFFFD");
    EXPECT_FALSE(Utf16Text("A\0B\0"s).marked);
    EXPECT_FALSE(Utf16Text("\xFE").marked);

    const struct {
        std::string text, stored;
    } unmarked[] = {
        {"", ""},
        {"na\xC3\xAFve \xE2\x82\xAC \xF0\x9F\x98\x80", "na\xC3\xAFve \xE2\x82\xAC \xF0\x9F\x98\x80"},
        {"Caf\xE9", "Caf\u00E9"},                          // Latin-1, although it ends like a cut sequence
        {"\xC3\xA9t\xE2\x82", "\xC3\xA9t"},                // cut
        {"\xC3\xA9\xF0\x9F\x98", "\xC3\xA9"},              // cut
        {"\xC3\xA9\xE0\x80", "\u00C3\u00A9\u00E0\u20AC"},  // could not have gone on: E0 needs A0 to BF
        {"\xC3\xA9 \xFF", "\u00C3\u00A9 \u00FF"},
        {"\xED\xA0\x80", "\u00ED\u00A0\u20AC"},                                  // a surrogate
        {"\xC0\xAF \xF4\x90\x80\x80", "\u00C0\u00AF \u00F4\u0090\u20AC\u20AC"},  // overlong, too large
        {"\x80\x81\x8D\x8F\x90\x9D\x9F", "\u20AC\u0081\u008D\u008F\u0090\u009D\u0178"},
    };
    for (const auto& c : unmarked) {
        std::string scratch;
        EXPECT_EQ(Utf8FromUnmarked(c.text, &scratch), c.stored);
    }
}

TEST(SqlDialect, TouchesOnlyPatternsAndTruthValues) {
    const struct {
        const char *text, *expected;
    } cases[] = {
        {"path like '/a''/%' and path not LIKE '/a''/%/%'",
         "path like '/a''/%' ESCAPE '\\' and path not LIKE '/a''/%/%' ESCAPE '\\'"},
        {"x = 'a like ''b''' or \"like\" = 'c'", "x = 'a like ''b''' or \"like\" = 'c'"},
        {"a like /* like 'x' */ 'b' escape '!' -- like 'c'",
         "a like /* like 'x' */ 'b' escape '!' -- like 'c'"},
        {"unlike 'a', like_ 'b', liked = 'c'", "unlike 'a', like_ 'b', liked = 'c'"},
        {"SET public = 'true', title='true' WHERE Enabled<>'NO' and is_subdir IS NOT true and updated = '0'",
         "SET public = 't', title='true' WHERE Enabled<>'f' and is_subdir IS NOT 't' and updated = '0'"},
        {"public = enabled and public = 'maybe' and enabled in ('true')",
         "public = enabled and public = 'maybe' and enabled in ('true')"},
        {"a like 'unfinished", "a like 'unfinished ESCAPE '\\'"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ToSqliteText(c.text), c.expected);
}

}  // namespace
}  // namespace koli::host
