// ID3v1 and ID3v2 tags, read and merged.

#include "audio/id3v2.h"
#include "audio/mp3.h"
#include "fuzz/memory_file.h"
#include "tests/fixture.h"
#include "tests/mp3_bytes.h"

namespace koli::test {

/// The fields that tags fill, as one text.
std::string Summary(const MediaInfo& record) {
    return Names(record) + "|" + record.comment;
}

struct Id3 : Fixture {
    /// What the tags before and behind a valid stream give.
    MediaInfo Parse(const std::string& tag, const std::string& trailer = "") {
        MediaInfo record{};
        const std::string bytes = tag + Audio() + trailer;
        const std::string path = MemoryFile(bytes.data(), bytes.size());
        EXPECT_EQ(Mp3MetadataParse(path.c_str(), &record, Reading()), 0);
        return record;
    }
};

TEST_F(Id3, StoresEachTextFrameInItsField) {
    const std::string v23 = Text("TIT2", "T") + Text("TPE1", "P") + Text("TALB", "A") + Text("TYER", "1999") +
                            Text("TCON", "Rock") + Text("TCOM", "C") + Text("COMM", "engd\0Words"s) +
                            Text("COMM", "eng\0late"s) + Text("TRCK", "3/12") + Text("TPOS", "1/2") +
                            Text("TDRC", "2004");
    const std::string v22 = Text22("TT2", "T") + Text22("TP1", "P") + Text22("TAL", "A") +
                            Text22("TYE", "1999") + Text22("TCO", "Rock") + Text22("TCM", "C") +
                            Text22("COM", "engd\0Words"s) + Text22("TRK", "3/12") + Text22("TPA", "1/2");
    EXPECT_EQ(Summary(Parse(Tag(v23))), "T|A|P|Rock|C|1999|3|1|Words");
    EXPECT_EQ(Summary(Parse(Tag(v22, 2))), "T|A|P|Rock|C|1999|3|1|Words");
}

TEST_F(Id3, ReadsNumbersAndGenresByTheirRules) {
    const auto all = [&](const char* id, const std::vector<std::string>& texts) {
        std::string result;
        for (const std::string& text : texts)
            result += Names(Parse(Tag(Text(id, text)))).substr(3) + " ";
        return result;
    };
    EXPECT_EQ(all("TCON", {"(17)", "(200)", "(17)Rock", "(1x)", "()", "x (0)", "(133)", "(17)(18)"}),
              "Rock||0|0|0 200||0|0|0 Rock||0|0|0 ||0|0|0 ||0|0|0 Blues||0|0|0 Afro-Punk||0|0|0 ||0|0|0 ");
    EXPECT_EQ(all("TCON", {"(147)", "(148)", ")Rock(", "(9999999999)"}),
              "SynthPop||0|0|0 148||0|0|0 )Rock(||0|0|0 2147483647||0|0|0 ");
    EXPECT_EQ(all("TYER", {"1999 ", "1199", "1200", "2200", "2201", " 1999"}),
              "||0|0|0 ||0|0|0 ||1200|0|0 ||2200|0|0 ||0|0|0 ||1999|0|0 ");
    EXPECT_EQ(all("TRCK", {"99999999999", "7x"}), "||0|9999999|0 ||0|7|0 ");
    EXPECT_EQ(all("TPOS", {"A", "2 ", "\xFF\xFE\x31", "2"}), "||0|0|0 ||0|0|0 ||0|0|0 ||0|0|2 ");
}

TEST_F(Id3, MarksUtf16TextByItsOwnByteOrderMark) {
    const std::string text = "\xFF\xFE\x61\0\x62\0"s;
    const MediaInfo record =
        Parse(Tag(Text("TIT2", text + "\0\0zz"s, 1) + Text("TALB", text, 1) + Text("TALB", text) +
                  Text("TPE1", "a\0b"s, 1) + Text("TCON", "\0(\0x"s, 2) + Text("TCOM", "", 2) +
                  Text("COMM", "eng\xFF\xFE\0\0\xFF\xFE\x61\0"s, 1)));  // cut at the description's first zero
    EXPECT_EQ(Summary(record), "\xFF\xFE\x61|\xFF\xFE\x61|a|\xFE\xFF||0|0|0|");
    const auto marks = {record.title_utf16, record.album_utf16,    record.artist_utf16,
                        record.genre_utf16, record.composer_utf16, record.comment_utf16};
    EXPECT_EQ(std::vector<int>(marks.begin(), marks.end()), (std::vector{1, 0, 0, 1, 0, 0}));
    EXPECT_EQ(std::string(record.title, 8), text + "\0\0"s);
    EXPECT_EQ(std::string(record.genre, 7), "\xFE\xFF\0(\0x\0"s);

    char field[255];
    Utf16BomCopy(("\xFE\xFF" + std::string(600, 'x')).c_str(), field, sizeof field);
    EXPECT_EQ(strnlen(field, sizeof field), 254U);
}

TEST_F(Id3, EndsTheScanWhereTheTagDoesNotLeadOn) {
    const std::string last = Text("TIT2", "T");
    const std::pair<std::string, std::string> cases[] = {
        {Tag(Text("TXXX", std::string(2000, 'x')) + last), "v1"},
        {Tag(Text("TXXX", std::string(1022, 'x')) + last), "T"},
        {Tag(Text22("TT2", std::string(299, 'x')) + Text22("TT2", "T"), 2), std::string(0x2C, 'x')},
        {Tag("\0\0\0\6\0\0\0\0\0\0"s + last), "v1"},        // an extended header
        {Tag(Frame("APIC", "", 0xFFFFFFF6) + last), "v1"},  // leads nowhere
        {Tag(Frame("APIC", "", 0x80000000) + last), "v1"},  // leads back
        {Tag(Text("TIT2", "old") + Text("tit2", "x") + last), "old"},
        {Tag(Text("TIT2", "old") + Text("Tit2", "T")), "T"},
        {Tag(Frame("TIT2", "\0T"s, 5)), "T\xFF\xFB\x90"},  // is read past the tag
        {Tag(Text("TIT2", std::string(1022, 'x'), 2)), "\xFE\xFF" + std::string(252, 'x')},
        {Tag(last, 1), "v1"},  // version 2.1 has no frames
        {Tag("TIT2" + Syncsafe(200) + "\0\0\0"s + std::string(199, 'y'), 4), std::string(199, 'y')}};
    for (const auto& [tag, title] : cases)
        EXPECT_EQ(Parse(tag, Trailer("v1", "", "", "", "", 0)).title, title);
}

TEST_F(Id3, FallsBackToTheTrailerFieldByField) {
    const std::string full(30, 'f'), blank = " \t\r\n\v\f", title = blank + "T" + blank;
    const std::string trailer = Trailer(title, full, blank, "1999", Padded("Words", 28, ' ') + "\0\7"s, 17);
    EXPECT_EQ(Summary(Parse("", trailer)), "T||" + full + "|Rock||1999|7|0|Words");
    EXPECT_EQ(Summary(Parse(Tag(Text("TPE1", "v2") + Text("TRCK", "A")), trailer)),
              "T||v2|Rock||1999|0|0|Words");
    for (const char genre : {'\0', '\x94', '\xFF'})
        EXPECT_EQ(Summary(Parse("", Trailer("", "", "", "99", std::string(29, 'c') + '\7', genre))),
                  "|||||0|0|0|" + std::string(29, 'c') + "\7");
}

TEST_F(Id3, SurvivesTagsThatAreCutOff) {
    const std::string whole = Tag(Text("TIT2", "\xFF\xFE\x61\0"s, 1) + Picture("image/jpeg", 3, "image") +
                                  Text("COMM", "engd\0Words"s)) +
                              Audio(2) + Trailer("T", "A", "L", "1999", "C", 1);
    for (size_t length = 0; length < whole.size(); ++length) {
        MediaInfo record{};
        const std::string path = MemoryFile(whole.data(), length);
        EXPECT_TRUE(Mp3MetadataParse(path.c_str(), &record, Reading()) == 0 ||
                    Summary(record) == "|||||0|0|0|");
    }
}

}  // namespace koli::test
