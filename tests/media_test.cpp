// What the handlers of all formats have in common: refusals, verdicts, and what they say about the store.
#include "video/media.h"

#include "audio/aiff.h"
#include "audio/flac.h"
#include "audio/music.h"
#include "index/index.h"
#include "index/playlist.h"
#include "index/record/index_mode.h"
#include "photo/photo.h"
#include "tests/fixture.h"
#include "tests/media_bytes.h"
#include "tests/mp3_bytes.h"
#include "video/mp4.h"
#include "video/video.h"

namespace koli::test {

using Handlers = Fixture;

TEST_F(Handlers, StoreGoodAndBadFilesAndTellWhatFails) {
    // A second of 8-bit sound, 8000 Hz, mono.
    const std::string wav =
        "RIFF\x64\x1f\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x40\x1f\0\0\x40\x1f\0\0\1\0\x08\0data\x40\x1f\0\0"s +
        std::string(8000, '\x80');
    const std::string dat = Be(0x1B3, 4) + "\x16\1\x20\x23\1\x38\x80\0"s + Be(0x1B8, 4) + "group";
    const std::string bad = Path("Folder/a.b.bad"), gone = Path("gone");
    const std::string music = "music metadata", probed = " metadata from file [" + bad + "].";
    const std::string bracket = "remove [" + gone + "] from database",
                      point = "remove " + gone + " from database.";
    const std::string info = "save media info to database.", list = "save playlist info.";
    const struct {
        std::string module, unparsed;  // '' = is not looked into
        int type;
        int (*add)(const KnownPath& path, FileReading& reading);
        int (*remove)(const char* path);
        std::string good, unsaved, undeleted;
        bool cleaned = true;
        int refusal = -1;
    } handlers[] = {
        {"music (#)", music + '.', 0, MusicFileAdd, MusicFileDelete, Audio(), info, bracket},
        {"flac (#)", music + '.', 0, FlacFileAdd, MusicFileDelete, "", info, bracket, false},
        {"aiff (#)", "", 0, AiffFileAdd, AiffFileDelete, "", info, bracket},
        {"mp4 (#)", "mp4 metadata.", 0, Mp4Add, Mp4Delete, "", info, bracket},
        {"media (#)", "media" + probed, 1, MediaVideoAdd, MediaVideoDelete, wav, info, bracket},
        {"media (#)", "music" + probed, 0, MediaMusicAdd, MediaMusicDelete, wav, info, bracket},
        {"media:#", "", 1, MediaVideoSave, MediaVideoDelete, "", info, bracket},
        {"media:#", "", 0, MediaMusicSave, MediaMusicDelete, "", info, bracket},
        {"video (#)", "dat metadata.", 1, VideoAdd, VideoDelete, dat, info, bracket},
        {"photo (#)", "", 2, PhotoMediaAdd, PhotoMediaDelete, "", list, point, false, 0},
        {"playlist (#)", "", 3, PlaylistFileAdd, PlaylistFileDelete, "", list, point, false, 0},
    };
    for (const auto& h : handlers) {
        SCOPED_TRACE(h.module + std::to_string(&h - handlers));
        fake = {};
        Write("Folder/a.b.bad", "junk");
        EXPECT_EQ(h.add(nullptr, Reading()), -1);
        EXPECT_EQ(fake.log, Lines{h.module + " Bad parameter."});
        EXPECT_EQ(h.add(gone.c_str(), Reading()), -1);
        EXPECT_EQ(fake.log.size(), 1U);

        const int verdict = h.unparsed.empty() ? 0 : 1;
        EXPECT_EQ(h.add(bad.c_str(), Reading()), verdict);
        const std::string log = testing::PrintToString(fake.log);
        EXPECT_TRUE(verdict == 0 || log.find(" Failed to parse " + h.unparsed + "\"") != std::string::npos);
        Lines calls = {"MediaInfoValid " + bad, "MediaInfoDBSave " + std::to_string(h.type) + " " + bad};
        if (!h.cleaned) calls.erase(calls.begin());
        EXPECT_EQ(fake.calls, calls);
        const MediaInfo& record = fake.media.at(0).second;
        EXPECT_EQ(Names(record), "a.b|Folder||||0|0|0");
        EXPECT_EQ(record.file_size, 4U);
        EXPECT_TRUE(h.type == 2 || *record.mtime != '\0');
        EXPECT_TRUE(h.good.empty() || h.add(Write("good", h.good).c_str(), Reading()) == 0);

        EXPECT_EQ(h.remove(bad.c_str()), -1);
        EXPECT_TRUE(fake.log.back().ends_with(" (#) File exists. Skip remove it from database."));
        fake.failing = {"MediaInfoDBSave", "MediaInfoDBDelete"};
        EXPECT_EQ(h.add(bad.c_str(), Reading()), verdict != 0 ? 1 : -1);
        EXPECT_EQ(fake.log.back(), h.module + " Failed to " + h.unsaved);
        EXPECT_TRUE(h.good.empty() || h.add(Write("good", h.good).c_str(), Reading()) == -1);
        EXPECT_EQ(h.remove(gone.c_str()), h.refusal);
        EXPECT_TRUE(fake.log.back().ends_with(" (#) Failed to " + h.undeleted));
        EXPECT_EQ(fake.calls.back(), "MediaInfoDBDelete " + std::to_string(h.type) + " " + gone);
    }
}

TEST_F(Handlers, AFileThatHasHadItsTimeIsUnreadable) {
    for (const char* name : {"a.mp3", "a.flac", "a.aif", "a.dat", "a.jpg"}) {
        fake = {};
        const std::string path = Write(name, Tag(Text("TIT2", "T")) + Audio());
        Reading reading(path.c_str(), 0);
        IndexHandlerFind(name + 2)->add(path.c_str(), reading);
        EXPECT_EQ(
            fake.log.front(),
            "reading (#) More than 0 seconds of processor time, the rest is taken for unreadable: " + path);
        EXPECT_FALSE(reading.file.IsWhole());
        EXPECT_STREQ(reading.file.failure().reason, "reading it takes too much processor time");
        EXPECT_STREQ(fake.media.at(0).second.title, "a");
    }
}

}  // namespace koli::test
