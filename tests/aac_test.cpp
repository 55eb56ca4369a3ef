// The AAC handler, with a decoder that prints what the media file holds.

#include <random>

#include "guard/probe_guard.h"
#include "index/aac.h"
#include "tests/fixture.h"
#include "tests/media_bytes.h"
#include "tools/aac/adts_stream.h"

namespace koli::test {

using Aac = Fixture;

constexpr const char kLine[] = "x.aac duration;12.5;samplerate;44100;channel;2;bitrate;128000;\n";

TEST_F(Aac, EveryNameReachesTheDecoderUnaltered) {
    for (const char* name :
         {"-i.aac", "\xff\xfe \\  $HOME`id`$(id);&|*?.aac", "it's \"x\"\n'a'b'$`\\\"\n.aac"}) {
        const std::string path = Write(std::string("Album/") + name, kLine);
        fake.calls.clear();
        ASSERT_EQ(AacFileAdd(path.c_str(), Reading()), 0) << name;
        EXPECT_EQ(fake.calls, (Lines{"MediaInfoValid " + path, "MediaInfoDBSave 0 " + path}));
        EXPECT_EQ(Figures(fake.media.back().second), "12.5 128000 44100 2");
        EXPECT_STREQ(fake.media.back().second.album, "Album");
    }
}

TEST_F(Aac, ReadsTheLineAsScanfDoes) {
    // Line and figures, none for a line that is refused.
    const std::pair<std::string, std::string> cases[] = {
        {"  x\tduration; 1e1;samplerate; 8;channel; 1;bitrate;7", "10 7 8 1"},
        {"xduration;1;samplerate;8;channel;1;bitrate;7;", ""},
        {"x duration;;samplerate;8;channel;1;bitrate;7;", ""},
        {"x duration;1,5;samplerate;8;channel;1;bitrate;7;", ""},
        {"x duration;1;samplerate;8;channel;1;bitrate;;", ""},
        {"x duration;1;samplerate;8;channel;1;bitrate;99999999999;", "1 2147483647 8 1"},
        {"x duration;1e99;samplerate;8;channel;1;bitrate;-1;", "inf 4294967295 8 1"},
        {std::string(960, 'x') + " duration;1;samplerate;8;channel;1;bitrate;5;", "1 5 8 1"},
        {std::string(1000, 'x') + " duration;1;samplerate;8;channel;1;bitrate;5;", ""},
    };
    for (const auto& [line, figures] : cases) {
        fake.log.clear();
        MediaInfo record{};
        EXPECT_EQ(AacInfoGet(Write("a.aac", line).c_str(), &record, Reading()), figures.empty() ? -1 : 0);
        EXPECT_EQ(Figures(record), figures.empty() ? "0 0 0 0" : figures);
        const std::string refused = "aac:# Failed to parse FAAD result. [" + line.substr(0, 1023) + "]";
        EXPECT_EQ(fake.log, figures.empty() ? Lines{refused} : Lines{});
    }
}

// Calls that none may succeed.
constexpr const char kForbidden[] = R"(#!/bin/sh
files=1
true >made || files=0
allowed=$(python3 -c '
import os, resource, signal, socket, sys
path, parent = sys.argv[1], os.getppid()
for call in (socket.socket, lambda: os.truncate(path, 9), lambda: os.chmod(path, 0o777), lambda: os.utime(path),
             lambda: os.chown(path, os.getuid(), -1), lambda: os.setxattr(path, "user.x", b""),
             lambda: os.kill(parent, 0), lambda: signal.pidfd_send_signal(os.pidfd_open(parent), 0),
             lambda: resource.prlimit(parent, resource.RLIMIT_CORE), lambda: os.setpriority(0, parent, 19)):
    try:
        call()
        print(end="x")
    except OSError:
        pass
' "$0")
echo x "duration;$(ulimit -t);samplerate;$(ulimit -n);channel;${#allowed};bitrate;$files;"
)";

TEST_F(Aac, TheDecoderHasLimitsAndNoNetworkAndChangesNothing) {
    const auto [filter, rules] = ProbeGuardStatusGet();
    const std::string path = Write("a.aac", kForbidden);
    MediaInfo record{};
    ASSERT_EQ(AacInfoGet(path.c_str(), &record, Reading()), 0);
    EXPECT_EQ(Figures(record).substr(0, 9), std::string("120 ") + (rules ? "0" : "1") + " 16 ");
    EXPECT_EQ(record.channels == 0, filter);
    EXPECT_EQ(std::filesystem::exists("made"), !rules);
    EXPECT_EQ(AacInfoGet(Write("b.aac", "#!\nkill -9 0\n").c_str(), &record, Reading()), -1);
}

TEST_F(Aac, WithoutFiguresTheFileIsStoredByName) {
    const std::string path = Write("Album/Song.aac", "");
    EXPECT_EQ(AacFileAdd(path.c_str(), Reading()), 1);
    EXPECT_EQ(Names(fake.media.at(0).second), "Song|Album||||0|0|0");
    EXPECT_EQ(fake.calls, Lines{"MediaInfoDBSave 0 " + path});

    MediaInfo record{};
    EXPECT_EQ(AacInfoGet("a", &record, Reading()), -1);  // three characters quoted, and room for two
    fake.failing = {"MediaInfoDBSave"};
    Write("Album/Song.aac", kLine);
    EXPECT_EQ(AacFileAdd(path.c_str(), Reading()), -1);
    EXPECT_EQ(AacFileAdd((path + "x").c_str(), Reading()), -1);
    EXPECT_EQ(fake.log, (Lines{"aac:# Failed to encode string [a]",
                               "aac:# Failed to save media info to database. [" + path + "]"}));
}

TEST_F(Aac, ACommandThatDoesNotFitIsNotRun) {
    const std::string marker = Path("ran");
    const std::string path = "/x'\n>" + marker + "\n" + std::string(4090, 'y');
    MediaInfo record{};
    EXPECT_EQ(AacInfoGet(path.c_str(), &record, Reading()), -1);
    ASSERT_EQ(fake.log.size(), 1U);
    EXPECT_EQ(fake.log[0].find("aac:# The command is too long. ["), 0U);
    EXPECT_EQ(ReadFile(marker), "");
    EXPECT_EQ(AacInfoGet("", &record, Reading()), -1);
    EXPECT_EQ(fake.log[1], "aac:# Bad parameter.");
}

/// A frame of so many bytes, at 44100 Hz and with two channels.
std::string AdtsFrame(uint64_t length, std::mt19937* random) {
    std::string frame = "\xFF\xF1" + Be(0x5080001FFCULL | length << 13, 5);
    while (frame.size() < length)
        frame += static_cast<char>((*random)());
    return frame;
}

TEST_F(Aac, TheToolCountsEveryWholeFrameAndNoDamagedOne) {
    std::mt19937 random(5);
    for (const uint64_t damaged_of : {1000U, 20U, 3U, 2U})
        for (const int kind : {0, 1, 2, 3}) {
            std::string bytes = kind == 0 ? "ID3\4" + Be(0, 4) + "\1\2" + std::string(130, '\xFF') : "";
            AdtsFigures found;
            int64_t sound_bytes = 0, sound_frames = 0;
            for (uint64_t i = 0; i < 300; ++i) {
                std::string frame = AdtsFrame(300 + random() % 100, &random);
                const bool is_damaged = i < 299 && i % damaged_of == damaged_of - 1;
                if (is_damaged && kind == 0) frame[random() % 2] = '\0';
                if (is_damaged && kind == 1)
                    frame = AdtsFrame(250 + random() % 40, &random) + frame.substr(290);
                if (is_damaged && kind == 2)
                    frame.replace(3, 3, AdtsFrame(405 + random() % 190, &random), 3, 3);
                if (is_damaged && kind == 3) frame.assign(frame.size(), '\0');
                bytes += frame;
                sound_bytes += is_damaged ? 0 : static_cast<int64_t>(frame.size());
                sound_frames += is_damaged ? 0 : 1;
            }
            EXPECT_TRUE(AdtsRead(Write("a.aac", bytes).c_str(), &found));
            EXPECT_EQ(std::tuple(found.frames, found.bytes, found.ticks, found.sample_rate, found.channels),
                      std::tuple(sound_frames, sound_bytes, found.frames * 1024 * 640, 44100, 2))
                << damaged_of << ' ' << kind;
            EXPECT_EQ(AdtsBitrate(found), sound_bytes * 8 * 44100 / (sound_frames * 1024));
        }
    const std::string frame = AdtsFrame(300, &random);
    std::string junk;
    while (junk.size() < 200000)
        junk += static_cast<char>(random());
    AdtsFigures found;
    for (const auto& [bytes, is_sound] :
         {std::pair(junk, false), {frame + junk, false}, {frame.substr(1), false}, {frame, true}})
        EXPECT_EQ(AdtsRead(Write("cut.aac", bytes).c_str(), &found), is_sound);
    std::filesystem::resize_file("cut.aac", uintmax_t{1} << 40);
    EXPECT_FALSE(AdtsRead("cut.aac", &found));
}

}  // namespace koli::test
