// The life of a batch: taken over, executed, kept and executed again, in the stores that still need it; and
// the lines that are none, or are cut.
#include "daemon/batch.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <thread>

#include "base/work_report.h"
#include "base/written_file_systems.h"
#include "daemon/kept_batch.h"
#include "daemon/queue.h"
#include "daemon/queue_line.h"
#include "daemon/settings.h"
#include "daemon/waiting_renames.h"
#include "index/directory.h"
#include "index/index.h"
#include "platform/koliindex.h"
#include "tests/fixture.h"

/// Of a share that has shut down for good, or of a sound one.
static int share_error = 0;
extern "C" int syncfs(int) noexcept {
    errno = share_error;
    return share_error == 0 ? 0 : -1;
}

// Recorders in place of the dispatch and the walk.
int koli::IndexOnePath(const KnownPath& path, int mode) {
    return test::Record(__func__, path.text(), mode);
}
void koli::IndexFilesBelow(const char* directory) {
    test::Record(__func__, directory);
}
void koli::IndexTreeAgain(const char* directory) {
    test::Record(__func__, directory);
}
int koli::IndexWalk(const KnownPath& path, int mode, int types) {
    return test::Record(__func__, path.text(), mode, types);
}

namespace koli::test {

struct Batch : Fixture {
    ~Batch() override { BatchForget("state"); }

    /// One run; gives what it called.
    static Lines Run() {
        fake.calls.clear();
        fake.log.clear();
        KOLIIndexMusicTableDirtySet(1);
        KOLIIndexVideoTableDirtySet(1);
        ProcessQueueFiles({"queue", "queue.tmp", "state", "rm -rf queue.tmp"});
        return fake.calls;
    }
    static bool CountsAsChanged() {
        return BlKOLIIndexIsMusicTableDirty() != 0 && BlKOLIIndexIsVideoTableDirty() != 0;
    }
    /// What the lines of a queue call; what a store refuses is not kept.
    Lines Calls(const std::string& lines) {
        Write("queue", lines);
        Lines calls = Run();
        EXPECT_EQ(std::filesystem::remove("queue.tmp"), fake.refusing != 0);
        BatchForget("state");
        EXPECT_EQ(calls.back(), "KOLIDBSync");
        calls.pop_back();
        return calls;
    }
    static std::string Bad(const std::string& line) { return "koliindexd (#) Bad format [" + line + "]."; }
    const std::string no_newline_ = "koliindexd (#) Warning! No new line here.";
    static bool Exists(const char* path) { return std::filesystem::exists(path); }
};

TEST_F(Batch, TellsHowFarItHasCome) {
    ASSERT_TRUE(WorkReportOpen("report"));
    Write("queue", "T:first\nT:second\nT:third");
    struct stat status {};
    ASSERT_EQ(stat("queue", &status), 0);
    Run();
    WorkReport report{};
    ASSERT_TRUE(WorkReportRead("report", &report));
    EXPECT_EQ(report.batch_inode, status.st_ino);
    EXPECT_EQ(report.batch_begun, 0);
    EXPECT_EQ((std::array{report.lines, report.lines_done, report.line_begin, report.all_batches}),
              (std::array<int64_t, 4>{3, 3, 17, 1}));
}

TEST_F(Batch, ComesBeforeTheQueueAndStaysWhileADatabaseRefuses) {
    Write("queue", "T:second\n");
    Write("queue.tmp", "T:first\n");
    fake.refusing = KOLI_PHOTO_DB | KOLI_MEDIA_DB;
    EXPECT_EQ(Run(), Lines{"KOLIDBSync"});  // ends at once
    EXPECT_NE(ReadFile("state").find("\ndatabase=media.db, photo.db\nreason=fake refusal\n"),
              std::string::npos);
    BatchForget("state");
    fake.refusing = KOLI_PHOTO_DB;
    EXPECT_EQ(Run(), (Lines{"KOLITruncateTable first", "KOLIDBSync"}));
    EXPECT_TRUE(CountsAsChanged());
    EXPECT_EQ(
        fake.log,
        Lines{
            "koliindexd (#) Keep /var/spool/koli_indexing_queue.tmp, to be tried again in 10 s. (photo.db: fake refusal)"});
    const std::string state = ReadFile("state");
    EXPECT_EQ(state.rfind("batch=kept\ndatabase=photo.db\nreason=fake refusal\nsince=", 0), 0U) << state;
    EXPECT_GT(BatchRetrySeconds(), 5);
    for (int i = 0; i < 8; ++i)
        Run();
    EXPECT_GT(BatchRetrySeconds(), 290);
    EXPECT_LE(BatchRetrySeconds(), 300);

    fake.refusing = 0;
    EXPECT_EQ(Run(), (Lines{"KOLITruncateTable first", "KOLIDBSync"}));
    EXPECT_FALSE(IsBatchKept() || Exists("state"));
    EXPECT_EQ(ReadFile("queue"), "T:second\n");
    fake.failing = {"KOLIDBSync"};  // for good: no repetition would help
    EXPECT_EQ(Run(), (Lines{"KOLITruncateTable second", "KOLIDBSync"}));
    EXPECT_FALSE(CountsAsChanged() || IsBatchKept() || Exists("queue.tmp"));

    EXPECT_EQ(Run(), Lines{});
    Lines expected(16, "koliindexd(#): Failed to rename queue. (No such file or directory)");
    expected.emplace_back("koliindexd(#): Failed to open queue.tmp. (No such file or directory)");
    EXPECT_EQ(fake.log, expected);
}

TEST_F(Batch, WaitsForSettingsThatCannotBeReadNow) {
    Write("queue", "T:first\n");
    fake.values["/etc.defaults/koliinfo.conf:supportphoto"] = "yes";
    support_photo = support_vidora = 0;
    fake.unreadable = EIO;
    FeaturesRead();
    EXPECT_EQ(Run(), Lines{});
    EXPECT_TRUE(Exists("queue.tmp") && IsBatchKept());
    EXPECT_NE(ReadFile("state").find("reason=/etc.defaults/koliinfo.conf: Input/output error\n"),
              std::string::npos);
    fake.unreadable = 0;
    EXPECT_EQ(Run(), (Lines{"KOLITruncateTable first", "KOLIDBSync"}));
    EXPECT_EQ((std::pair{support_photo, support_vidora}), (std::pair{1, 0}));

    Write("queue", "T:second\n");
    fake.unreadable = ENOMEM;  // those of the machine
    EXPECT_EQ(Run(), Lines{});
    CharsetRead();
    EXPECT_EQ(support_photo, 1);
    fake.unreadable = EACCES;  // for good: as if there were none
    EXPECT_EQ(Run(), (Lines{"KOLITruncateTable second", "KOLIDBSync"}));
}

TEST_F(Batch, WaitsForAShareThatCannotBeSyncedButNotForEver) {
    MakeDir("new\nline");
    const std::string fault = "(new?line/: Input/output error)";
    share_error = EIO;
    for (const char* told :
         {"be tried again in 10 s. ", "be tried again in 20 s. ", "lost what was written. "}) {
        if (!IsBatchKept()) Write("queue", "T:table\n");
        FileSystemWritten(1, "new\nline/cover1.jpg");
        if (IsBatchKept()) WrittenFileSystemsSync();  // before the end
        Run();
        ASSERT_EQ(fake.log.size(), 1U);
        EXPECT_TRUE(fake.log[0].ends_with(told + fault)) << fake.log[0];
    }
    EXPECT_FALSE(Exists("queue.tmp") || IsBatchKept());
    Write("queue", "T:table\n");
    FileSystemWritten(1, "new\nline/cover1.jpg");
    Run();
    EXPECT_TRUE(Exists("queue.tmp"));
    Run();  // nothing is written now
    EXPECT_FALSE(Exists("queue.tmp"));
}

TEST_F(Batch, ExecutedAgainItSparesThePhotoDatabaseWhatThatHasAlready) {
    const std::string lines = "d:/v/1.mp3\nd:/v/2.mp3\n", photo = "vol00001/photo/x.jpg";
    Write("queue", lines + "d:" + photo + "\n");
    fake.refusing = KOLI_MEDIA_DB;
    EXPECT_EQ(Run(), (Lines{"PhotoLibraryIndex " + photo + " 2", "KOLIDBSync"}));
    EXPECT_EQ(fake.mark.offset, static_cast<int64_t>(std::filesystem::file_size("queue.tmp")));

    // A late line is behind the mark.
    std::ofstream("queue.tmp", std::ios::app) << "d:" + photo + "2.jpg\n";
    fake.refusing = 0;
    EXPECT_EQ(Run(), (Lines{"IndexOnePath /v/1.mp3 2", "IndexOnePath /v/2.mp3 2",
                            "IndexOnePath " + photo + " 2", "IndexOnePath " + photo + "2.jpg 2",
                            "PhotoLibraryIndex " + photo + "2.jpg 2", "KOLIDBSync"}));
    EXPECT_EQ(fake.mark.offset, 0);

    // A mark of another batch, and one of more than there is, count for nothing.
    for (const int64_t offset : {4, 4000}) {
        Write("queue.tmp", "d:" + photo + "\n");
        fake.mark = {offset, 1};
        EXPECT_EQ(Run().at(1), "PhotoLibraryIndex " + photo + " 2");
    }
    Write("queue", "d:" + photo + "\n");
    fake.mark = {4, 1};
    Run();
    EXPECT_EQ(fake.mark.offset, 0);
}

TEST_F(Batch, WaitingRenamesAreKnownWhileTheFileGrows) {
    const std::string first = "N:/a/new:/a//old/\n", photo = "vol00001/photo/x";
    Write("queue", first + "N:/a/b:/a/o\nA:/c\nN:" + photo + ":/d");
    WaitingRenames renames;
    EXPECT_TRUE(renames.Holds("queue", 0, "/a/old/x/y.jpg"));
    EXPECT_FALSE(renames.Holds("queue", 0, "/a/older"));
    EXPECT_FALSE(renames.Holds("queue", 0, "/c"));
    EXPECT_TRUE(renames.Holds("queue", 0, nullptr));
    std::ofstream("queue", std::ios::app) << "e\nN:/x:/late\n";
    const auto begin = static_cast<int64_t>(first.size());
    EXPECT_FALSE(renames.Holds("queue", begin, "/a/old"));
    for (const char* path : {"/a/o", "/de", "/late"})
        EXPECT_TRUE(renames.Holds("queue", begin, path)) << path;
    Write("queue", "N:/x:/y\n");
    EXPECT_FALSE(renames.Holds("queue", 0, "/late") || renames.Holds("queue", 0, nullptr));
    EXPECT_FALSE(renames.Holds("none", 0, "/y") || renames.Brings("queue", 0, "/y"));
    EXPECT_TRUE(renames.Brings("queue", 0, "/x/z") && !renames.Brings("queue", 1, "/x"));
}

struct HeldBatch : Batch {
    /// A writer that holds the lock on the batch and gives it up, with `late` written, when it is joined.
    std::thread Writer(const std::string& text, const std::string& late) {
        const int fd = open(Write("queue.tmp", text).c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        EXPECT_EQ(flock(fd, LOCK_EX), 0);
        return std::thread([fd, late] {
            usleep(50'000);
            EXPECT_EQ(write(fd, late.data(), late.size()), static_cast<ssize_t>(late.size()));
            close(fd);
        });
    }
};

TEST_F(HeldBatch, WhatIsWrittenUnderTheLockWhileItEndsIsNotLost) {
    std::thread writer = Writer("T:first\n", "T:late\n");
    EXPECT_EQ(Run(), (Lines{"KOLITruncateTable first", "KOLITruncateTable late", "KOLIDBSync"}));
    EXPECT_FALSE(Exists("queue.tmp"));
    writer.join();
    writer = Writer("T:first\nT:half", "time\nT:late");
    EXPECT_EQ(Run(), (Lines{"KOLITruncateTable first", "KOLITruncateTable halftime", "KOLITruncateTable late",
                            "KOLIDBSync"}));
    writer.join();
}

TEST_F(HeldBatch, ALineThatItsWriterHoldsIsNotExecuted) {
    const int fd = open(Write("queue.tmp", "T:first\nT:half").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    EXPECT_EQ(Run(), (Lines{"KOLITruncateTable first", "KOLIDBSync"}));
    EXPECT_TRUE(Exists("queue.tmp") && IsBatchKept());
    close(fd);
    EXPECT_EQ(Run(), (Lines{"KOLITruncateTable first", "KOLITruncateTable half", "KOLIDBSync"}));
    EXPECT_FALSE(Exists("queue.tmp"));
}

TEST_F(Batch, LinesThatAreNoRequestsAreLoggedAndTheNextOneIsRead) {
    // Zero bytes end a line, and hide nothing behind them.
    EXPECT_EQ(Calls("\n/v/x.mp3\n:\nT:a\n\0\0\0T:b\nD:/vol\0\0T:c\nT:d\0\nA:/v/x.mp3"s),
              (Lines{"KOLITruncateTable a", "KOLITruncateTable b", "KOLITruncateTable c",
                     "IndexWalk /v/x.mp3 1 3"}));
    EXPECT_EQ(fake.log, (Lines{Bad("\n"), Bad("/v/x.mp3\n"), Bad(":\n"), Bad(""), Bad("D:/vol"), Bad("T:d"),
                               Bad("\n"), no_newline_}));
}

TEST_F(Batch, ALineThatDoesNotFitIsReadInPieces) {
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
    while (from.size() + 200 < paths::kQueueLineSize - 4 - to.size())
        from += "/" + std::string(99, 'x');
    from += "/" + std::string(paths::kQueueLineSize - 1 - 4 - to.size() - from.size(), 'y');
    for (const char* end : {"", "\n"})
        EXPECT_EQ(Calls("N:" + to + ":" + from + end),
                  (Lines{"IndexWalk " + from + " 2 1", "IndexWalk " + to + " 1 1"}));
}

TEST_F(Batch, WhatIsThrownIntoTheBinIsNotStoredThere) {
    EXPECT_EQ(Calls("N:/volume1/music/#recycle/x.mp3:/volume1/music/x.mp3\n"),
              (Lines{"IndexOnePath /volume1/music/x.mp3 2", "IndexWalk /volume1/music/x.mp3 2 1"}));
}

TEST_F(Batch, WhatCannotBeLookedAtIsNotRemoved) {
    ASSERT_EQ(symlink("loop", "loop"), 0);
    MakeDir("new");
    EXPECT_EQ(Calls("D:loop/x\nd:loop\nN:new:loop/x\nN:new:/tmp\n"),
              (Lines{"IndexWalk new 1 1", "IndexWalk (null) 2 1", "IndexWalk new 1 1"}));
    const std::string reason = ". Skip remove it from database. (Too many levels of symbolic links)";
    const auto line = [&](const char* path) { return "koliindexd (#) Failed to look at "s + path + reason; };
    EXPECT_EQ(fake.log, (Lines{line("loop/x"), line("loop"), line("loop/x")}));
}

}  // namespace koli::test
