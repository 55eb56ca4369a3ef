// Queue runs: the life of a batch, the line format, and what each request calls.
#include "daemon/queue.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "daemon/queue_line.h"
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
    // One that fills the buffer to its last byte is whole.
    const std::string to = "new/" + std::string(200, 'n');
    MakeDir(to);
    std::string from;
    while (from.size() + 200 < kQueueLineSize - 4 - to.size())
        from += "/" + std::string(99, 'x');
    from += "/" + std::string(kQueueLineSize - 1 - 4 - to.size() - from.size(), 'y');
    for (const char* end : {"", "\n"})
        EXPECT_EQ(Calls("N:" + to + ":" + from + end),
                  (Lines{"IndexWalk " + from + " 2 1", "IndexWalk " + to + " 1 1"}));
}

TEST_F(Queue, PathsLoseWhatNamesNothing) {
    const std::string old = Write("vol/old", "");
    EXPECT_EQ(
        Calls("A:/v//a //\nd:/gone/ \nD:/gone/.//\na:/./\nN:/x/:" + dir() +
              "//./vol/old/\nD:\nN::\nN:/x\n"
              "N:/x:/vol/../y\n"),
        (Lines{"IndexWalk /v/a  1 3", "IndexOnePath /gone/  2", "IndexWalk /gone 2 3", "IndexOnePath / 1",
               "IndexOnePath " + old + " 2", "IndexOnePath /x 1", "IndexOnePath " + old + " 1",
               "IndexWalk  2 3", "IndexOnePath (null) 2", "IndexOnePath (null) 1", "IndexOnePath (null) 2",
               "IndexOnePath /x 1", "IndexOnePath (null) 2", "IndexOnePath /x 1"}));
}

TEST_F(Queue, WhatCannotBeLookedAtIsNotRemoved) {
    ASSERT_EQ(symlink("loop", "loop"), 0);
    MakeDir("new");
    EXPECT_EQ(Calls("D:loop/x\nd:loop\nN:new:loop/x\nN:new:/tmp\n"),
              (Lines{"IndexWalk new 1 1", "IndexWalk (null) 2 1", "IndexWalk new 1 1"}));
    const std::string reason = ". Skip remove it from database. (Too many levels of symbolic links)";
    const auto line = [&](const char* path) { return "koliindexd (#) Failed to look at "s + path + reason; };
    EXPECT_EQ(fake.log, (Lines{line("loop/x"), line("loop"), line("loop/x")}));
}

TEST_F(Queue, AStoreThatRefusesIsLeftAlone) {
    const std::string p = "vol00001/photo/T";
    const std::string lines = "A:" + p + "\na:" + p + ".avi\nD:" + p + "2\nd:" + p + "2.jpg\nN:" + p + ":" +
                              p + "2\nR:photo\nR:music\nT:music\nT:photo_info\nU:photo\n";
    MakeDir(p);
    Write(p + ".avi", "");
    fake.refusing = KOLI_MEDIA_DB;
    EXPECT_EQ(
        Calls(lines),
        (Lines{"IndexWalk " + p + " 1 2", "PhotoShareFsCheck", "PhotoShareWalk " + p,
               "PhotoLibraryIndex " + p + ".avi 1", "IndexWalk " + p + "2 2 2",
               "PhotoShareUpdate " + p + "2 2", "PhotoLibraryIndex " + p + "2.jpg 2",
               "PhotoPathRename " + p + " " + p + "2 1", "PhotoShareRename " + p + " " + p + "2",
               "VideoDescPathRename " + p + " " + p + "2 1", "VideoDescPathRename " + p + " " + p + "2 2",
               "PhotoShareFsCheck", "PhotoFolderResync (null)", "PhotoDBVacuum", "PhotoShareResync (null)",
               "KOLITruncateTable photo_info"}));
    fake.refusing = KOLI_PHOTO_DB;
    fake.results["IndexOnePath"] = -1;
    EXPECT_EQ(Calls(lines),
              (Lines{"IndexWalk " + p + " 1 1", "IndexOnePath " + p + ".avi 1", "IndexWalk " + p + "2 2 1",
                     "IndexOnePath " + p + "2.jpg 2", "IndexWalk " + p + "2 2 1", "IndexWalk " + p + " 1 1",
                     "IndexWalk (null) 3 4", "KOLITruncateTable music"}));
}

TEST_F(Queue, PhotoPathsAlsoReachThePhotoLibraryAndItsAlbums) {
    const std::string p = "vol00001/photo/T";  // its ninth character is where a volume's photo share has it
    MakeDir(p);
    Write(p + ".avi", "");
    ASSERT_EQ(mkfifo((p + ".fifo.avi").c_str(), 0600), 0);
    const std::string lines = "A:" + p + "\nA:" + p + "/x\na:" + p + "\na:" + p + ".avi\na:" + p +
                              ".fifo.avi\nD:" + p + "2\nd:" + p + ".jpg\n";
    fake.results = {{"IndexOnePath", -1}};
    EXPECT_EQ(Calls(lines),
              (Lines{"IndexWalk " + p + " 1 3", "PhotoShareFsCheck", "PhotoShareWalk " + p,
                     "IndexWalk " + p + "/x 1 3", "IndexOnePath " + p + " 1", "PhotoShareUpdate " + p + " 1",
                     "IndexOnePath " + p + ".avi 1", "KLIBExec /usr/koli/bin/koliflvconv -f " + p + ".avi",
                     "IndexOnePath " + p + ".fifo.avi 1", "IndexWalk " + p + "2 2 3",
                     "PhotoShareUpdate " + p + "2 2", "IndexOnePath " + p + ".jpg 2",
                     "PhotoLibraryIndex " + p + ".jpg 2"}));
    fake.results.clear();
    EXPECT_EQ(Calls("a:" + p + ".jpg\n").back(), "PhotoLibraryIndex " + p + ".jpg 1");
    support_photo = 0;
    EXPECT_EQ(Calls(lines).size(), 7U);
}

struct Renames : Queue {
    static std::string Both(const char* function, const std::string& names, const char* rest = "") {
        return function + (" " + names) + rest;
    }
    static Lines FolderMove(const std::string& names) {
        return {Both("PhotoPathRename", names, " 1"), Both("PhotoShareRename", names),
                Both("VideoDescPathRename", names, " 1"), Both("VideoDescPathRename", names, " 2")};
    }
    const std::string n_ = "vol00001/photo/N", o_ = "vol00001/photo/O", names_ = n_ + " " + o_;
};

Lines operator+(Lines first, const Lines& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

TEST_F(Renames, MoveEverythingThatHangsOnThePath) {
    MakeDir(n_);
    Write(n_ + ".flv", "");
    Write(n_ + ".jpg", "");
    const std::string directory = "N:" + n_ + ":" + o_ + ":ignored\n",
                      video = "N:" + n_ + ".flv::" + o_ + ".flv\n", flv = n_ + ".flv " + o_ + ".flv";
    EXPECT_EQ(Calls(directory),
              (Lines{"IndexWalk " + o_ + " 2 1", "IndexWalk " + n_ + " 1 1"} + FolderMove(names_)));
    EXPECT_EQ(Calls(video), (Lines{"IndexOnePath " + o_ + ".flv 2", "IndexOnePath " + n_ + ".flv 1",
                                   Both("PhotoPathRename", flv, " 0"), Both("VideoDescPathRename", flv, " 1"),
                                   Both("VideoDescPathRename", flv, " 2")}));
    EXPECT_EQ(Calls("N:" + n_ + ".jpg:" + o_ + ".jpg\n").size(), 3U);
    support_vidora = 0;
    EXPECT_EQ(Calls(video + directory).size(), 7U);
    support_photo = 0;
    EXPECT_EQ(Calls(video + directory).size(), 4U);
}

TEST_F(Renames, KeepTheRowsOfWhatStandsAtTheOldPath) {
    const std::string top = "vol00001/photo", line = "N:" + n_ + ":" + o_;
    MakeDir(n_);
    MakeDir(o_);
    const Lines media = {"IndexTreeAgain " + o_, "IndexWalk " + n_ + " 1 1"};
    EXPECT_EQ(Calls(line + "\n"), media + FolderMove(names_));
    // Captions move only when the line can mean nothing else.
    const Lines added = {"IndexWalk " + n_ + " 1 2", "PhotoShareFsCheck", "PhotoShareWalk " + n_};
    for (const char* doubtful : {"", ":Live\n"})
        EXPECT_EQ(Calls(line + doubtful), media + added);
    EXPECT_EQ(Calls("N:" + n_ + ":" + top + "\n"),
              (Lines{"IndexTreeAgain " + top, "IndexWalk " + n_ + " 1 1"} + added));
    EXPECT_EQ(Calls("N:" + n_ + ":" + n_ + "\n"),
              (Lines{"IndexTreeAgain " + n_, "IndexWalk " + n_ + " 1 1"} + added));
    Write(n_ + ".jpg", "");
    EXPECT_EQ(Calls("N:" + n_ + ".jpg:" + n_ + ".jpg\n").back(), "PhotoLibraryIndex " + n_ + ".jpg 1");
}

TEST_F(Renames, PassThroughNamesAtWhichNothingStandsAnyMore) {
    MakeDir("vol00001/photo");
    const std::string line = "N:" + n_ + ":" + o_ + "\n";
    const Lines media = {"IndexOnePath " + o_ + " 2", "IndexWalk " + o_ + " 2 1",
                         "IndexOnePath " + n_ + " 1"};
    const std::string photos = "photo 0 path like '" + o_ + "/%'",
                      album = "photo 3 sharename = '" + o_.substr(15) + "'";
    const Lines asked = {"PhotoInfoDBOpen " + photos, "PhotoInfoDBOpen " + album};
    EXPECT_EQ(Calls(line), media + asked + Lines{Both("PhotoPathRename", names_, " 0")});
    fake.rows[album] = {{{"shareid", "1"}}};
    EXPECT_EQ(Calls(line), media + asked + FolderMove(names_));
    fake.rows = {{photos, {{{"path", o_ + "/a.jpg"}}}}};
    EXPECT_EQ(Calls(line), media + Lines{asked[0]} + FolderMove(names_));
    MakeDir(o_);  // another one has taken its place
    EXPECT_EQ(Calls(line),
              (Lines{"IndexTreeAgain " + o_, "IndexOnePath " + n_ + " 1", asked[0]} + FolderMove(names_)));
}

TEST_F(Queue, WordsSelectWhatIsRebuilt) {
    support_photo = 0;  // R:photo asks for no feature switch
    EXPECT_EQ(
        Calls("R:photo\nR:video\nR:Music\nR:\nU:video\nU:\n"),
        (Lines{"PhotoShareFsCheck", "PhotoFolderResync (null)", "PhotoDBVacuum", "PhotoShareResync (null)",
               "IndexWalk (null) 3 8", "IndexWalk (null) 3 1", "IndexWalk (null) 3 1"}));
}

}  // namespace koli::test
