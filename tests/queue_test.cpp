// Queue runs: the life of a batch, the line format, and what each request calls.
#include "daemon/queue.h"

#include <filesystem>

#include "platform/koliindex.h"
#include "tests/fake_index.h"
#include "tests/fixture.h"

namespace koli::test {

struct Queue : Fixture {
    /// One run; gives what it called.
    static Lines Run() {
        fake.calls.clear();
        fake.log.clear();
        KOLIIndexMusicTableDirtySet(1);
        KOLIIndexVideoTableDirtySet(1);
        ProcessQueueFiles({"queue", "queue.tmp", "state", "rm -rf queue.tmp"});
        EXPECT_EQ(BlKOLIIndexIsMusicTableDirty() + BlKOLIIndexIsVideoTableDirty(), 0);
        return fake.calls;
    }
    /// What the lines of a queue call.
    Lines Calls(const std::string& lines) {
        Write("queue", lines);
        Lines calls = Run();
        EXPECT_EQ(calls.back(), "KOLIDBSync");
        EXPECT_FALSE(std::filesystem::exists("queue.tmp"));
        calls.pop_back();
        return calls;
    }
    static std::string Bad(const std::string& line) { return "koliindexd (#) Bad format [" + line + "]."; }

    const std::string no_newline_ = "koliindexd (#) Warning! No new line here.";
};

TEST_F(Queue, LinesThatAreNoRequestsAreLoggedAndTheNextOneIsRead) {
    // Zero bytes end a line, and hide nothing behind them.
    EXPECT_EQ(Calls("\n/v/x.mp3\n:\nT:a\n\0\0\0T:b\nD:/vol\0\0T:c\nT:d\0\nA:/v/x.mp3"s),
              (Lines{"KOLITruncateTable a", "KOLITruncateTable b", "KOLITruncateTable c",
                     "IndexWalk /v/x.mp3 1 3"}));
    EXPECT_EQ(fake.log, (Lines{Bad("\n"), Bad("/v/x.mp3\n"), Bad(":\n"), Bad(""), Bad("D:/vol"), Bad("T:d"),
                               Bad("\n"), no_newline_}));
}

TEST_F(Queue, ALineThatDoesNotFitIsReadInPieces) {
    const std::string fits(4108, 'x');
    EXPECT_EQ(Calls("T:" + fits + "\n"), Lines{"KOLITruncateTable " + fits});
    EXPECT_TRUE(fake.log.empty());
    EXPECT_EQ(Calls("T:" + fits + "yT:rest\n"),
              (Lines{"KOLITruncateTable " + fits + "y", "KOLITruncateTable rest"}));
    EXPECT_EQ(fake.log, Lines{no_newline_});
    // The old path of a cut rename could be anything above the one meant.
    MakeDir("new");
    EXPECT_EQ(Calls("N:new:/volume1/music/" + fits + "\n"),
              (Lines{"IndexWalk (null) 2 1", "IndexWalk new 1 1"}));
}

TEST_F(Queue, PathsLoseTheirTrailingSlashes) {
    EXPECT_EQ(
        Calls("A:/v/a //\nd:/gone/ \nD:/gone///\na://\nN:/x/:/y//\nD:\nN::\nN:/x\n"),
        (Lines{"IndexWalk /v/a  1 3", "IndexOnePath /gone/  2", "IndexWalk /gone 2 3", "IndexOnePath / 1",
               "IndexOnePath /y 2", "IndexOnePath /x 1", "IndexWalk  2 3", "IndexOnePath (null) 2",
               "IndexOnePath (null) 1", "IndexOnePath (null) 2", "IndexOnePath /x 1"}));
}

TEST_F(Queue, PhotoPathsAlsoReachThePhotoLibraryAndItsAlbums) {
    const std::string p = "vol00001/photo/T";  // its ninth character is where a volume's photo share has it
    MakeDir(p);
    const std::string lines = "A:" + p + "\nA:" + p + "/x\na:" + p + "\nD:" + p + "2\nd:" + p + ".jpg\n";
    const std::string exec = "KLIBExec /usr/koli/bin/koliflvconv -f ";
    fake.results = {{"IndexOnePath", -1}};
    EXPECT_EQ(Calls(lines), (Lines{"IndexWalk " + p + " 1 3", "PhotoShareFsCheck", "PhotoShareWalk " + p,
                                   "IndexWalk " + p + "/x 1 3", "IndexOnePath " + p + " 1", exec + p,
                                   "PhotoShareUpdate " + p + " 1", "IndexWalk " + p + "2 2 3",
                                   "PhotoShareUpdate " + p + "2 2", "IndexOnePath " + p + ".jpg 2",
                                   "PhotoLibraryIndex " + p + ".jpg 2"}));
    fake.results.clear();
    EXPECT_EQ(Calls("a:" + p + ".jpg\n").back(), "PhotoLibraryIndex " + p + ".jpg 1");
    support_photo = 0;
    EXPECT_EQ(Calls(lines).size(), 5U);
}

TEST_F(Queue, RenamesMoveEverythingThatHangsOnThePath) {
    const std::string n = "vol00001/photo/N", o = "vol00001/photo/O";
    MakeDir(n);
    const std::string directory = "N:" + n + ":" + o + ":ignored\n",
                      video = "N:" + n + ".flv::" + o + ".flv\n";
    const auto both = [&](const char* function, const char* extension, const char* rest) {
        return std::string(function) + " " + n + extension + " " + o + extension + rest;
    };
    EXPECT_EQ(Calls(directory),
              (Lines{"IndexWalk " + o + " 2 1", "IndexWalk " + n + " 1 1", both("PhotoPathRename", "", " 1"),
                     both("PhotoShareRename", "", ""), both("VideoDescPathRename", "", " 1"),
                     both("VideoDescPathRename", "", " 2")}));
    EXPECT_EQ(Calls(video),
              (Lines{"IndexOnePath " + o + ".flv 2", "IndexOnePath " + n + ".flv 1",
                     both("PhotoPathRename", ".flv", " 0"), both("VideoDescPathRename", ".flv", " 1"),
                     both("VideoDescPathRename", ".flv", " 2")}));
    EXPECT_EQ(Calls("N:" + n + ".jpg:" + o + ".jpg\n").size(), 3U);
    support_vidora = 0;
    EXPECT_EQ(Calls(video + directory).size(), 7U);
    support_photo = 0;
    EXPECT_EQ(Calls(video + directory).size(), 4U);
}

TEST_F(Queue, WordsSelectWhatIsRebuilt) {
    support_photo = 0;  // R:photo asks for no feature switch
    EXPECT_EQ(
        Calls("R:photo\nR:video\nR:Music\nR:\nU:video\nU:\n"),
        (Lines{"PhotoShareFsCheck", "PhotoFolderResync (null)", "PhotoDBVacuum", "PhotoShareResync (null)",
               "IndexWalk (null) 3 8", "IndexWalk (null) 3 1", "IndexWalk (null) 3 1"}));
}

}  // namespace koli::test
