// The handlers of files that are probed, parsed as MPEG video, or only recorded.
#include "video/media.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/fake_platform.h"
#include "video/metavideo.h"
#include "video/video.h"

namespace koli {

/// Stands in for the MPEG video parser.
int MpegVideoInfoGet(const char* path, MediaInfo* record) {
    record->sample_rate = 8000;
    return strstr(path, "bad") == nullptr ? 0 : -1;
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

TEST(MediaHandlers, RefuseBadArgumentsSkipMissingFilesAndDeleteFromTheirOwnTable) {
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
    for (const Handler remove : {MediaVideoDelete, MediaMusicDelete, VideoDelete})
        EXPECT_EQ(remove("/gone"), 0);
    EXPECT_EQ(fake.calls,
              (Lines{"MediaInfoDBDelete 1 /gone", "MediaInfoDBDelete 0 /gone", "MediaInfoDBDelete 1 /gone"}));
}

TEST(MediaHandlers, StoreReadableUnreadableAndUnreadFiles) {
    const test::Sandbox sandbox;
    const std::string good = sandbox.Write("Folder/good.wav", Wav());
    const std::string bad = sandbox.Write("Folder/bad.avi", "no media");
    const struct {
        Handler add;
        int type;
        std::string parse_failure;  // '' = the file is not looked into
        std::string save_failure;
    } handlers[] = {
        {MediaVideoAdd, 1, "media (#) Failed to parse media metadata from file [" + bad + "].", "media (#)"},
        {MediaMusicAdd, 0, "media:# Failed to parse music metadata from file [" + bad + "].", "media (#)"},
        {VideoAdd, 1, "video (#) Failed to parse dat metadata.", "video (#)"},
        {MediaVideoSave, 1, "", "media:#"},
        {MediaMusicSave, 0, "", "media:#"}};
    for (const auto& h : handlers) {
        fake = {};
        const bool probed = !h.parse_failure.empty();
        EXPECT_EQ(h.add(good.c_str()), 0);
        EXPECT_TRUE(fake.log.empty());
        EXPECT_EQ(h.add(bad.c_str()), probed ? 1 : 0);
        EXPECT_EQ(probed ? fake.log.back() : "", h.parse_failure);
        EXPECT_EQ(fake.media.at(0).first, h.type);
        EXPECT_EQ(fake.media[0].second.sample_rate, probed ? 8000U : 0U);
        EXPECT_STREQ(fake.media.at(1).second.title, "bad");
        EXPECT_STREQ(fake.media[1].second.album, "Folder");
        fake.failing = {"MediaInfoDBSave"};
        EXPECT_EQ(h.add(good.c_str()), -1);
        EXPECT_EQ(h.add(bad.c_str()), probed ? 1 : -1);
        EXPECT_EQ(fake.log.back(), h.save_failure + " Failed to save media info to database.");
    }
}

}  // namespace
}  // namespace koli
