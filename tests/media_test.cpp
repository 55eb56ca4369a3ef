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
    const std::pair<Handler, const char*> handlers[] = {{MediaVideoAdd, "media (#) Bad parameter."},
                                                        {MediaMusicAdd, "media (#) Bad parameter."},
                                                        {MediaVideoSave, "media:# Bad parameter."},
                                                        {MediaMusicSave, "media:# Bad parameter."},
                                                        {VideoAdd, "video (#) Bad parameter."}};
    for (const auto& [add, refusal] : handlers) {
        fake.log.clear();
        for (const char* path : {static_cast<const char*>(nullptr), "", "/no/such.avi"})
            EXPECT_EQ(add(path), -1);
        EXPECT_EQ(fake.log, Lines(2, refusal));
    }
    EXPECT_TRUE(fake.calls.empty());
}

TEST(MediaHandlers, StoreReadableUnreadableAndUnreadFiles) {
    const test::Sandbox sandbox;
    const std::string good = sandbox.Write("Folder/good.wav", Wav());
    const std::string bad = sandbox.Write("Folder/bad.avi", "no media");
    const std::string music_text = "media:# Failed to parse music metadata from file [" + bad + "].";
    const std::string video_text = "media (#) Failed to parse media metadata from file [" + bad + "].";
    const struct {
        Handler add;
        int type;
        std::string parse_failure;  // '' = the file is not looked into
        std::string save_failure;
    } handlers[] = {{MediaVideoAdd, 1, video_text, "media (#) Failed to save media info to database."},
                    {MediaMusicAdd, 0, music_text, "media (#) Failed to save media info to database."},
                    {MediaVideoSave, 1, "", "media:# Failed to save media info to database."},
                    {MediaMusicSave, 0, "", "media:# Failed to save media info to database."}};
    for (const auto& h : handlers) {
        fake = {};
        const bool probed = !h.parse_failure.empty();
        EXPECT_EQ(h.add(good.c_str()), 0);
        EXPECT_TRUE(fake.log.empty());
        EXPECT_EQ(h.add(bad.c_str()), probed ? 1 : 0);
        EXPECT_EQ(probed ? fake.log.back() : "", h.parse_failure);
        EXPECT_EQ(fake.calls[0], "MediaInfoValid " + good);
        EXPECT_EQ(fake.media.at(0).first, h.type);
        EXPECT_EQ(fake.media[0].second.sample_rate, probed ? 8000U : 0U);
        EXPECT_STREQ(fake.media.at(1).second.title, "bad");
        EXPECT_STREQ(fake.media[1].second.album, "Folder");

        fake.failing = {"MediaInfoDBSave"};
        EXPECT_EQ(h.add(good.c_str()), -1);
        EXPECT_EQ(h.add(bad.c_str()), probed ? 1 : -1);
        EXPECT_EQ(fake.log.back(), h.save_failure);
    }
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
    const auto& [type, record] = fake.media.at(1);
    EXPECT_EQ(type, 1);
    EXPECT_STREQ(record.title, "clip");
    EXPECT_STREQ(record.album, "video");
    EXPECT_EQ(record.width, 352U);
    EXPECT_STREQ(record.ctime, "ctime");
    EXPECT_EQ(fake.log[1], "video (#) Failed to parse dat metadata.");
    EXPECT_EQ(fake.log[2], "video (#) Failed to save media info to database.");
}

TEST(MediaHandlers, DeleteFromTheirOwnTable) {
    const test::Sandbox sandbox;
    for (const Handler remove : {MediaVideoDelete, MediaMusicDelete, VideoDelete})
        EXPECT_EQ(remove("/gone"), 0);
    fake.failing = {"MediaInfoDBDelete"};
    EXPECT_EQ(VideoDelete("/gone"), -1);
    const char* const calls[] = {"MediaInfoDBDelete 1 /gone", "MediaInfoDBDelete 0 /gone",
                                 "MediaInfoDBDelete 1 /gone", "MediaInfoDBDelete 1 /gone"};
    EXPECT_EQ(fake.calls, Lines(std::begin(calls), std::end(calls)));
    EXPECT_EQ(fake.log, Lines{"video (#) Failed to remove [/gone] from database"});
}

}  // namespace
}  // namespace koli
