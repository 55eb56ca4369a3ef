// The container probe on small files built here, and on files that try to make it open others.

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <random>

#include <fcntl.h>

#include "audio/flac_blocks.h"
#include "base/regular_file.h"
#include "platform/koliindex.h"
#include "tests/fixture.h"
#include "tests/mp3_bytes.h"
#include "video/container_probe.h"
#include "video/metamedia.h"
#include "video/probe_reads.h"

/// What was asked for ahead of the reads, from where to where.
static std::vector<std::pair<size_t, size_t>> asked;
extern "C" int __wrap_posix_fadvise64(int, off_t offset, off_t length, int advice) {
    if (advice == POSIX_FADV_WILLNEED) asked.emplace_back(offset, offset + length);
    return 0;
}

namespace koli::test {

std::string Chunk(const std::string& id, const std::string& body) {
    return id + Le(body.size(), 4) + body + (body.size() % 2 != 0 ? std::string(1, '\0') : "");
}

/// A RIFF INFO list of (id, text) pairs.
std::string Info(std::initializer_list<std::pair<const char*, std::string>> tags) {
    std::string list = "INFO";
    for (const auto& [id, text] : tags)
        list += Chunk(id, text + '\0');
    return Chunk("LIST", list);
}

std::string Wav(unsigned format, unsigned channels, unsigned rate, unsigned bits, const std::string& list) {
    const unsigned frame = channels * bits / 8;
    const std::string fmt = Le(format, 2) + Le(channels, 2) + Le(rate, 4) + Le(uint64_t{rate} * frame, 4) +
                            Le(frame, 2) + Le(bits, 2);
    const std::string samples(size_t{rate} * frame * 3 / 2, '\x55');  // one second and a half
    return Chunk("RIFF", "WAVE" + Chunk("fmt ", fmt) + list + Chunk("data", samples));
}

using ContainerProbe = Fixture;

TEST_F(ContainerProbe, ReadsFormatsAndTags) {
    const std::string tags = Info(
        {{"INAM", "Title"}, {"IPRD", std::string(300, 'a')}, {"ICRD", "  2004-05-06"}, {"IPRT", "7/12"}});
    const std::string odd_tags = Info({{"ICRD", "May 2004"}, {"IPRT", "99999999999"}, {"INAM", ""}});
    const std::tuple<const char*, std::string, std::string, std::string> cases[] = {
        {"a.wav", Wav(1, 2, 44100, 16, tags), "1 1411200 44100 2 0x0 ",
         "Title|" + std::string(kTextSize - 1, 'a') + "||||2004|7|0"},
        {"b.wav", Wav(6, 1, 8000, 8, odd_tags), "1 64000 8000 1 0x0 ", "preset|folder||||1|2147483647|0"},
        {"c.wav", Wav(6, 1, 8000, 8, ""), "1 64000 8000 1 0x0 ", "preset|folder||||1|0|0"}};
    for (const auto& [name, bytes, figures, names] : cases) {
        MediaInfo record{};
        record.year = 1;
        strcpy(record.title, "preset");
        strcpy(record.album, "folder");
        ASSERT_EQ(MiscMediaInfoGet(Write(name, bytes).c_str(), &record, Reading()), 0);
        EXPECT_TRUE(Figures(record).starts_with(figures)) << Figures(record);
        EXPECT_EQ(Names(record), names);
    }
    EXPECT_TRUE(fake.log.empty());
}

TEST_F(ContainerProbe, HandsOldTextsOverAsTheyAreWhereACharsetIsSet) {
    const std::string tag = Tag(Text("TIT2", "\xCC\xEE\x9F") + Text("TPE1", "Caf\xC3\xA9", 3) +
                                Text("TALB", "\xFF\xFE\xCC\0"s, 1));
    const auto probe = [&](const std::string& bytes) {
        MediaInfo record{};
        EXPECT_EQ(MiscMediaInfoProbe(Write("a.wav", bytes).c_str(), &record, Reading()), 0);
        return Names(record);
    };
    const std::string in_chunk = Wav(1, 1, 8000, 16, Chunk("odd ", "x") + Chunk("id3 ", tag));
    EXPECT_EQ(probe(in_chunk), "\u00CC\u00EE\u009F|\u00CC|Caf\u00E9|||0|0|0");
    KOLITagCharsetSet("CP1251");
    for (const std::string& bytes : {in_chunk, tag + Wav(1, 1, 8000, 16, "")})
        EXPECT_EQ(probe(bytes), "\xCC\xEE\x9F|\u00CC|Caf\u00E9|||0|0|0");
    KOLITagCharsetSet(nullptr);
}

TEST_F(ContainerProbe, TellsWhatItCannotOpen) {
    MediaInfo record{};
    const std::string path = Write("text.avi", "just a text");
    const std::string fifo = dir() + "/fifo.avi";
    mkfifo(fifo.c_str(), 0600);
    // Without the wait for what never comes, which ends with -1.
    for (const std::string& unreadable :
         {path, fifo, dir(), std::string("/no/such.avi"), std::string("/proc/kmsg")}) {
        fake.log.clear();
        Reading reading;
        EXPECT_EQ(MiscMediaInfoGet(unreadable.c_str(), &record, reading), 1);
        const bool is_open = reading.file.failure().reason == "the container could not be opened"s;
        EXPECT_EQ(is_open, unreadable == path) << reading.file.failure().reason;
        fake.log.resize(2);
        EXPECT_EQ(fake.log,
                  (Lines{"metamedia (#) Failed to av_open_input_file() file [" + unreadable + "].",
                         "metamedia (#) Failed to get Misc Media Info from [" + unreadable + "]."}));
    }
}

TEST_F(ContainerProbe, NamesAreOnlyNames) {
    const std::string wav = Wav(1, 1, 8000, 16, "");
    for (const char* name : {"http:x.wav", "concat:a|b.wav", "file:x.wav", "a%03d.wav", "-x ?#.wav"}) {
        Write(name, wav);
        MediaInfo record{};
        EXPECT_EQ(MiscMediaInfoGet((dir() + "/" + name).c_str(), &record, Reading()), 0) << name;
        EXPECT_EQ(MiscMediaInfoProbe(name, &record, Reading()), 0) << name;
    }
}

/// Which bytes of a file of these are asked for.
static std::vector<bool> AskedOf(const std::string& path, size_t size) {
    const RegularFile file(path.c_str());
    asked.clear();
    const bool is_flac = path.ends_with(".flac");
    (is_flac ? FlacBlocksRequest : ProbeReadsRequest)(file.descriptor(), file.size());
    std::vector<bool> bytes(size);
    for (const auto& [from, end] : asked) {
        EXPECT_LE(end, size);
        std::fill(bytes.begin() + static_cast<ptrdiff_t>(from), bytes.begin() + static_cast<ptrdiff_t>(end),
                  true);
    }
    return bytes;
}

TEST_F(ContainerProbe, AsksForWhatItWillRead) {
    const auto box = [](const char* type, const std::string& body) {
        return Be(body.size() + 8, 4) + type + body;
    };
    const std::string film(3000000, 'f'), index(400000, 'i'), some(20000, 's');
    std::string packs[2];
    for (uint64_t scr = 0; packs[0].size() < film.size(); scr += 900) {  // 10 ms, 2 KB each
        const uint64_t high = scr >> 15 & 0x7FFF, low = scr & 0x7FFF;
        packs[0] += Padded("\0\0\1\xBA"s + Be(0x2100010001 | high << 17 | low << 1, 5), 2048, 'f');
        packs[1] += Padded("\0\0\1\xBA"s + Be(0x440004000401 | high << 27 | low << 11, 6), 2048, 'f');
    }
    const std::string mkv = "\x1A\x45\xDF\xA3\x44\x89\x88"s;
    const struct {
        std::string bytes;
        size_t head, tail, most;  // bytes
    } cases[] = {
        {box("ftyp", "isom") + box("free", some) + Be(1, 4) + "mdat" + Be(film.size() + 16, 8) + film +
             box("moov", index),
         115000, 400008, 560000},
        {box("ftyp", "isom") + box("moov", index) + box("mdat", film) + box("moof", some) + box("mdat", film),
         498000, 0, 540000},
        {box("ftyp", "M4A ") + box("mdat", film) + box("moov", index), 32768, 400008, 470000},
        {Chunk("RIFF", "AVI " + Chunk("LIST", "hdrl" + some) + Chunk("LIST", "movi" + film + "f") +
                           Chunk("idx1", index)),
         52000, 400008, 500000},
        {packs[0], 1090000, 250000, 1400000},  // 5.35 s
        {packs[1], 1090000, 250000, 1400000},
        {mkv + "\x40\xD3\x88\0\0\0\0\0"s + film, 150000, 0, 160000},  // 20 s
        {mkv + std::string(8, '\xFF') + film, 32768, 0, 32768},
        {mkv + std::string(8, '\0') + film, 32768, 0, 32768},
        {std::string(188, 'G') + film, 262144, 250000, 520000},
        {"fLaC\0\0\0\x22"s + std::string(34, 'f') + "\x06" + Be(index.size(), 3) + index + "\x84" +
             Be(some.size(), 3) + some + film,
         420050, 0, 420050},
        {"text", 4, 0, 4},
        {"", 0, 0, 0}};
    std::mt19937 random(1);
    for (const auto& [bytes, head, tail, most] : cases) {
        const std::string name = bytes.starts_with("fLaC") ? "x.flac" : "x";
        const std::vector<bool> read = AskedOf(Write(name, bytes), bytes.size());
        EXPECT_EQ(std::count(read.begin(), read.begin() + static_cast<ptrdiff_t>(head), false), 0) << head;
        EXPECT_EQ(std::count(read.end() - static_cast<ptrdiff_t>(tail), read.end(), false), 0) << head;
        EXPECT_LE(static_cast<size_t>(std::count(read.begin(), read.end(), true)), most) << head;
        for (int mutant = 0; mutant < 12 && !bytes.empty(); ++mutant) {
            std::string other = bytes;
            for (int i = 0; i < 4; ++i)
                other[random() % std::min<size_t>(other.size(), 64)] = static_cast<char>(random());
            AskedOf(Write(name, other), other.size());
            EXPECT_LE(asked.size(), 300U);
        }
    }
}

// ---- Files that name a local secret (a sound file whose title would show) and a server on this machine.

TEST_F(ContainerProbe, FollowsNoReferenceToOtherFilesOrHosts) {
    const int server = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    socklen_t size = sizeof address;
    ASSERT_EQ(listen(server, 9) | getsockname(server, reinterpret_cast<sockaddr*>(&address), &size), 0);
    const std::string port = std::to_string(ntohs(address.sin_port));
    const std::string secret = Write("secret.wav", Wav(1, 1, 8000, 16, Info({{"INAM", "SECRET"}})));
    MediaInfo control{};
    ASSERT_EQ(MiscMediaInfoProbe(secret.c_str(), &control, Reading()), 0);
    ASSERT_STREQ(control.title, "SECRET");

    const std::string targets[] = {"secret.wav", secret, "file://" + secret,
                                   "http://127.0.0.1:" + port + "/x"};
    const std::string mpd =
        "<?xml version=\"1.0\"?><MPD xmlns=\"urn:mpeg:dash:schema:mpd:2011\" type=\"static\" profiles=\"urn:mpeg:dash:profile:isoff-main:2011\" mediaPresentationDuration=\"PT2S\"><Period><AdaptationSet contentType=\"audio\" mimeType=\"audio/wav\"><Representation id=\"0\" bandwidth=\"1\"><BaseURL>";
    std::vector<std::string> texts = {
        ";FFMETADATA1\ntitle=SECRET\n",
        "v=0\no=- 0 0 IN IP4 127.0.0.1\ns=SECRET\nc=IN IP4 127.0.0.1\nt=0 0\nm=audio 5004 RTP/AVP 0\n"};
    for (const std::string& target : targets) {
        texts.push_back("ffconcat version 1.0\nfile '" + target + "'\n");
        texts.push_back(mpd + target + "</BaseURL></Representation></AdaptationSet></Period></MPD>");
        texts.push_back("#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:2,\n" + target + "\n#EXT-X-ENDLIST\n");
        texts.push_back("#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXT-X-KEY:METHOD=AES-128,URI=\"" + target +
                        "\"\n#EXTINF:2,\nx.ts\n");
    }
    for (const std::string& text : texts) {
        const std::string path = Write("x.avi", text);
        MediaInfo record{};
        alarm(10);  // one that is followed may wait for an answer for ever
        EXPECT_EQ(MiscMediaInfoProbe(path.c_str(), &record, Reading()), 1) << text;  // by the lists alone
        alarm(0);
        EXPECT_EQ(MiscMediaInfoGet(path.c_str(), &record, Reading()), 1) << text;
        const std::string bytes(reinterpret_cast<const char*>(&record), sizeof record);
        EXPECT_EQ(bytes.find("SECRET"), std::string::npos) << text;
    }
    EXPECT_LT(accept4(server, nullptr, nullptr, SOCK_CLOEXEC), 0);  // nobody came
    close(server);
}

}  // namespace koli::test
