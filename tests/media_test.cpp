// The handlers of files that are probed, parsed as MPEG video, or only recorded.
#include "video/media.h"

#include <gtest/gtest.h>

#include "tests/fake_platform.h"
#include "video/metavideo.h"
#include "video/video.h"

namespace koli {

namespace {
int mpeg_result;  // what the stand-in for the MPEG video parser returns
}
int MpegVideoInfoGet(const char*, MediaInfo* record) {
    record->width = 352;
    return mpeg_result;
}

namespace {

using test::fake;
using Lines = std::vector<std::string>;
using Handler = int (*)(const char*);

/// A second of 8-bit sound, 8000 Hz, mono.
std::string Wav() {
    return std::string(
               "RIFF\x64\x1f\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x40\x1f\0\0\x40\x1f\0\0\1\0\x08\0data\x40\x1f\0\0",
               44) +
           std::string(8000, '\x80');
}

TEST(MediaHandlers, RefuseBadArgumentsAndSkipMissingFiles) {
    const test::Sandbox sandbox;
    const struct {
        Handler add;
        const char* refusal;
    } handlers[] = {{MediaVideoAdd, "media (#) Bad parameter."},
                    {MediaMusicAdd, "media (#) Bad parameter."},
                    {MediaVideoSave, "media:# Bad parameter."},
                    {MediaMusicSave, "media:# Bad parameter."},
                    {VideoAdd, "video (#) Bad parameter."}};
    for (const auto& h : handlers) {
        fake.log.clear();
        EXPECT_EQ(h.add(nullptr), -1);
        EXPECT_EQ(h.add(""), -1);
        EXPECT_EQ(h.add((sandbox.dir() + "/gone.avi").c_str()), -1);
        EXPECT_EQ(fake.log, Lines(2, h.refusal));
    }
    EXPECT_TRUE(fake.calls.empty());
}

TEST(MediaHandlers, StoreReadableAndUnreadableFiles) {
    const test::Sandbox sandbox;
    const std::string good = sandbox.Write("Folder/good.wav", Wav());
    const std::string bad = sandbox.Write("Folder/bad.avi", "no media");
    const std::string probe_failure = "metamedia (#) Failed to get Misc Media Info from [" + bad + "].";
    const std::string open_failure = "metamedia (#) Failed to av_open_input_file() file [" + bad + "].";
    const struct {
        Handler add;
        int type;
        std::string parse_failure, save_failure;
    } handlers[] = {{MediaVideoAdd, 1, "media (#) Failed to parse media metadata from file [" + bad + "].",
                     "media (#) Failed to save media info to database."},
                    {MediaMusicAdd, 0, "media:# Failed to parse music metadata from file [" + bad + "].",
                     "media (#) Failed to save media info to database."}};
    for (const auto& h : handlers) {
        fake = {};
        EXPECT_EQ(h.add(good.c_str()), 0);
        EXPECT_EQ(h.add(bad.c_str()), 1);
        EXPECT_EQ(fake.log, (Lines{open_failure, probe_failure, h.parse_failure}));
        EXPECT_EQ(fake.calls[0], "MediaInfoValid " + good);
        ASSERT_EQ(fake.media.size(), 2U);
        for (const auto& [type, record] : fake.media) {
            EXPECT_EQ(type, h.type);
            EXPECT_STREQ(record.album, "Folder");
            EXPECT_STREQ(record.mtime, "mtime");
        }
        EXPECT_EQ(fake.media[0].second.sample_rate, 8000U);
        EXPECT_EQ(fake.media[0].second.file_size, 8044U);
        EXPECT_STREQ(fake.media[1].second.title, "bad");

        fake.failing = {"MediaInfoDBSave"};
        EXPECT_EQ(h.add(good.c_str()), -1);
        EXPECT_EQ(fake.log.back(), h.save_failure);
        EXPECT_EQ(h.add(bad.c_str()), 1);
        EXPECT_EQ(fake.log.back(), h.save_failure);
    }
}

TEST(MediaHandlers, RecordSomeFilesUnread) {
    const test::Sandbox sandbox;
    const std::string path = sandbox.Write("Folder/a.srt", "1");
    EXPECT_EQ(MediaVideoSave(path.c_str()), 0);
    EXPECT_EQ(MediaMusicSave(path.c_str()), 0);
    EXPECT_EQ(fake.calls, (Lines{"MediaInfoValid " + path, "MediaInfoDBSave 1 " + path,
                                 "MediaInfoValid " + path, "MediaInfoDBSave 0 " + path}));
    EXPECT_TRUE(fake.log.empty());
    fake.failing = {"MediaInfoDBSave"};
    EXPECT_EQ(MediaVideoSave(path.c_str()), -1);
    EXPECT_EQ(fake.log, Lines{"media:# Failed to save media info to database."});
}

TEST(VideoAdd, StoresWhatTheParserLeft) {
    const test::Sandbox sandbox;
    const std::string path = sandbox.Write("video/clip.dat", "x");
    mpeg_result = 0;
    EXPECT_EQ(VideoAdd(path.c_str()), 0);
    mpeg_result = -1;
    EXPECT_EQ(VideoAdd(path.c_str()), 1);
    fake.failing = {"MediaInfoDBSave"};
    EXPECT_EQ(VideoAdd(path.c_str()), 1);
    const MediaInfo& record = fake.media.at(1).second;
    EXPECT_EQ(fake.media.at(1).first, 1);
    EXPECT_STREQ(record.title, "clip");
    EXPECT_STREQ(record.album, "video");
    EXPECT_EQ(record.width, 352U);
    EXPECT_STREQ(record.ctime, "ctime");
    EXPECT_EQ(fake.log,
              (Lines{"video (#) Failed to parse dat metadata.", "video (#) Failed to parse dat metadata.",
                     "video (#) Failed to save media info to database."}));
}

TEST(MediaHandlers, DeleteOnlyWhatIsGone) {
    const test::Sandbox sandbox;
    const std::string there = sandbox.Write("a.avi", "x");
    const struct {
        Handler remove;
        std::string module, call;
    } handlers[] = {{MediaVideoDelete, "media", "MediaInfoDBDelete 1 /gone"},
                    {MediaMusicDelete, "media", "MediaInfoDBDelete 0 /gone"},
                    {VideoDelete, "video", "MediaInfoDBDelete 1 /gone"}};
    for (const auto& h : handlers) {
        fake = {};
        EXPECT_EQ(h.remove(there.c_str()), -1);
        EXPECT_EQ(h.remove("/gone"), 0);
        fake.failing = {"MediaInfoDBDelete"};
        EXPECT_EQ(h.remove("/gone"), -1);
        EXPECT_EQ(fake.calls, Lines(2, h.call));
        EXPECT_EQ(fake.log, (Lines{h.module + " (#) File exists. Skip remove it from database.",
                                   h.module + " (#) Failed to remove [/gone] from database"}));
    }
}

}  // namespace
}  // namespace koli
