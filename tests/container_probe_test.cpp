// The container probe on small files built here, and on files that try to make it open others.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "tests/fake_platform.h"
#include "video/container_probe.h"
#include "video/metamedia.h"

namespace koli {
namespace {

using test::fake;
using Lines = std::vector<std::string>;

std::string Le(uint64_t value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i, value >>= 8)
        text += static_cast<char>(value);
    return text;
}

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

/// One second of uncompressed 16 x 8 video.
std::string Avi(const std::string& list) {
    const unsigned frames = 10, frame_size = 16 * 8 * 3;
    const std::string avih = Le(100000, 4) + Le(0, 12) + Le(frames, 4) + Le(0, 4) + Le(1, 4) + Le(0, 4) +
                             Le(16, 4) + Le(8, 4) + Le(0, 16);
    const std::string strh = "vidsDIB " + Le(0, 12) + Le(1, 4) + Le(10, 4) + Le(0, 4) + Le(frames, 4) +
                             Le(frame_size, 4) + Le(0, 16);
    const std::string strf =
        Le(40, 4) + Le(16, 4) + Le(8, 4) + Le(1, 2) + Le(24, 2) + Le(0, 4) + Le(frame_size, 4) + Le(0, 16);
    std::string movi = "movi";
    for (unsigned i = 0; i < frames; ++i)
        movi += Chunk("00db", std::string(frame_size, '\0'));
    const std::string stream = Chunk("LIST", "strl" + Chunk("strh", strh) + Chunk("strf", strf));
    return Chunk("RIFF",
                 "AVI " + Chunk("LIST", "hdrl" + Chunk("avih", avih) + stream) + list + Chunk("LIST", movi));
}

TEST(ContainerProbe, ReadsFormatsAndTags) {
    const test::Sandbox sandbox;
    const std::string tags = Info(
        {{"INAM", "Title"}, {"IPRD", std::string(300, 'a')}, {"ICRD", "  2004-05-06"}, {"IPRT", "7/12"}});
    const std::string odd_tags = Info({{"ICRD", "May 2004"}, {"IPRT", "99999999999"}, {"INAM", ""}});
    const struct {
        std::string name, bytes;
        unsigned audio_bitrate, channels, width;
        std::string title, album;
        int year, track;
    } cases[] = {
        {"a.wav", Wav(1, 2, 44100, 16, tags), 1411200, 2, 0, "Title", std::string(kTextSize - 1, 'a'), 2004,
         7},
        {"b.wav", Wav(6, 1, 8000, 8, odd_tags), 64000, 1, 0, "preset", "folder", 1, INT32_MAX},
        {"c.wav", Wav(6, 1, 8000, 8, ""), 64000, 1, 0, "preset", "folder", 1, 0},
        {"a.avi", Avi(tags), 0, 0, 16, "Title", "folder", 2004, 7}};  // a video keeps its folder's name
    for (const auto& c : cases) {
        MediaInfo record{};
        record.year = 1;
        strcpy(record.title, "preset");
        strcpy(record.album, "folder");
        ASSERT_EQ(MiscMediaInfoGet(sandbox.Write(c.name, c.bytes).c_str(), &record), 0);
        EXPECT_EQ(record.audio_bitrate, c.audio_bitrate) << c.name;
        EXPECT_EQ(record.channels, c.channels) << c.name;
        EXPECT_EQ(record.width, c.width) << c.name;
        EXPECT_EQ(record.duration, 1.0F) << c.name;  // whole seconds
        EXPECT_EQ(record.title, c.title) << c.name;
        EXPECT_EQ(record.album, c.album) << c.name;
        EXPECT_EQ(record.year, c.year) << c.name;
        EXPECT_EQ(record.track, c.track) << c.name;
    }
    EXPECT_TRUE(fake.log.empty());
}

TEST(ContainerProbe, SurvivesEveryCutAndTellsWhatItCannotOpen) {
    const test::Sandbox sandbox;
    for (const std::string& whole : {Wav(1, 1, 8000, 16, Info({{"INAM", "Title"}})), Avi("")})
        for (size_t size = 1; size < 400; size += 7) {
            const std::string path = sandbox.Write("cut", whole.substr(0, size));
            MediaInfo record{};
            const int result = MiscMediaInfoGet(path.c_str(), &record);
            EXPECT_TRUE(result == 0 || result == 1) << size;
        }
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);

    fake.log.clear();
    MediaInfo record{};
    const std::string path = sandbox.Write("text.avi", "just a text");
    EXPECT_EQ(MiscMediaInfoGet(path.c_str(), &record), 1);
    EXPECT_EQ(MiscMediaInfoGet("/no/such.avi", &record), 1);
    EXPECT_EQ(fake.log, (Lines{"metamedia (#) Failed to av_open_input_file() file [" + path + "].",
                               "metamedia (#) Failed to get Misc Media Info from [" + path + "].",
                               "metamedia (#) Failed to av_open_input_file() file [/no/such.avi].",
                               "metamedia (#) Failed to get Misc Media Info from [/no/such.avi]."}));
}

TEST(ContainerProbe, NamesAreOnlyNames) {
    const test::Sandbox sandbox;
    const std::string wav = Wav(1, 1, 8000, 16, "");
    ASSERT_EQ(chdir(sandbox.dir().c_str()), 0);
    for (const char* name : {"http:x.wav", "concat:a|b.wav", "file:x.wav", "a%03d.wav", "-x ?#.wav"}) {
        sandbox.Write(name, wav);
        MediaInfo record{};
        EXPECT_EQ(MiscMediaInfoGet((sandbox.dir() + "/" + name).c_str(), &record), 0) << name;
        EXPECT_EQ(MiscMediaInfoProbe(name, &record), 0) << name;
    }
    ASSERT_EQ(chdir("/"), 0);
}

// ---- Files that name a local secret (a sound file whose title would show) and a server on this machine.

/// A server that answers nobody; `authority` becomes its host and port.
int Listen(std::string* authority) {
    const int server = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* any = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(bind(server, any, size) | listen(server, 9) | getsockname(server, any, &size), 0);
    *authority = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    return server;
}

TEST(ContainerProbe, FollowsNoReferenceToOtherFilesOrHosts) {
    const test::Sandbox sandbox;
    std::string authority;
    const int server = Listen(&authority);
    const std::string secret = sandbox.Write("secret.wav", Wav(1, 1, 8000, 16, Info({{"INAM", "SECRET"}})));
    MediaInfo control{};
    ASSERT_EQ(MiscMediaInfoProbe(secret.c_str(), &control), 0);
    ASSERT_STREQ(control.title, "SECRET");

    const std::string targets[] = {"secret.wav", secret, "file://" + secret, "http://" + authority + "/x"};
    const std::string mpd =
        "<?xml version=\"1.0\"?><MPD xmlns=\"urn:mpeg:dash:schema:mpd:2011\" type=\"static\" "
        "profiles=\"urn:mpeg:dash:profile:isoff-main:2011\" mediaPresentationDuration=\"PT2S\"><Period>"
        "<AdaptationSet contentType=\"audio\" mimeType=\"audio/wav\"><Representation id=\"0\" "
        "bandwidth=\"1\"><BaseURL>";
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
        const std::string path = sandbox.Write("x.avi", text);
        MediaInfo record{};
        alarm(10);  // one that is followed may wait for an answer for ever
        EXPECT_EQ(MiscMediaInfoProbe(path.c_str(), &record), 1) << text;  // by the lists alone
        alarm(0);
        EXPECT_EQ(MiscMediaInfoGet(path.c_str(), &record), 1) << text;
        const std::string bytes(reinterpret_cast<const char*>(&record), sizeof record);
        EXPECT_EQ(bytes.find("SECRET"), std::string::npos) << text;
    }
    EXPECT_LT(accept4(server, nullptr, nullptr, SOCK_CLOEXEC), 0);  // nobody came
    close(server);
}

}  // namespace
}  // namespace koli
