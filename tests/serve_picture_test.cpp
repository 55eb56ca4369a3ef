// Small pictures: what is made of which file, and the process that makes them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <csignal>
#include <future>
#include <limits>

#include "guard/probe_guard.h"
#include "tests/host_temp_dir.h"
#include "tests/media_bytes.h"
#include "tools/serve/maker/jpeg.h"
#include "tools/serve/maker/small_picture.h"
#include "tools/serve/picture/pictures.h"

namespace koli::serve::test {

using namespace koli::test;

/// A bitmap of 32 bits per pixel, of four quarters in the colours `quarters` (BGRA): from the left, then
/// down.
std::string Bitmap(int width, int height, const std::vector<std::string>& quarters, bool is_in_icon = false) {
    const auto wide = static_cast<uint64_t>(width), high = static_cast<uint64_t>(height);
    std::string pixels;
    for (int y = height; y-- > 0;)
        for (int x = 0; x < width; ++x)
            pixels += quarters[static_cast<size_t>((y >= height / 2 ? 2 : 0) + (x >= width / 2 ? 1 : 0))];
    const std::string head = Le(40, 4) + Le(wide, 4) + Le(is_in_icon ? 2 * high : high, 4) + Le(1, 2) +
                             Le(32, 2) + Padded("", 4) + Le(pixels.size(), 4) + Padded("", 16);
    return (is_in_icon ? "" : "BM" + Le(54 + pixels.size(), 4) + Padded("", 4) + Le(54, 4)) + head + pixels;
}

const std::string kRed = "\0\0\xff\xff"s, kGreen = "\0\xff\0\xff"s, kBlue = "\xff\0\0\xff"s,
                  kBlack = "\0\0\0\xff"s, kClear = "\0\0\0\0"s;

std::string Quarters(int width, int height) {
    return Bitmap(width, height, {kRed, kGreen, kBlue, kBlack});
}

std::vector<uint8_t> Bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

std::string Small(const std::string& file, int side, size_t room = 100000) {
    std::string jpeg(room, '\0');
    jpeg.resize(SmallPictureMake(Bytes(file), side, {reinterpret_cast<uint8_t*>(jpeg.data()), room}));
    return jpeg;
}

/// "WIDTHxHEIGHT " and a letter for each quarter; "none" for no picture.
std::string Look(const std::string& jpeg) {
    const std::vector<uint8_t> bytes = Bytes(jpeg);
    const Frame frame = JpegDecode(bytes, 10000);
    if (frame == nullptr) return "none";
    std::string text = std::to_string(frame->width) + "x" + std::to_string(frame->height) + " ";
    for (const int quarter : {0, 1, 2, 3}) {
        const int x = frame->width * (quarter % 2 == 0 ? 1 : 3) / 4,
                  y = frame->height * (quarter < 2 ? 1 : 3) / 4;
        const uint8_t* pixel = frame->data[0] + y * frame->linesize[0] + 4 * x;
        text += "KBGCRMYW"[(pixel[0] > 127 ? 4 : 0) + (pixel[1] > 127 ? 2 : 0) + (pixel[2] > 127 ? 1 : 0)];
    }
    return text;
}

std::string WithOrientation(const std::string& jpeg, uint64_t number) {
    const std::string tags = "Exif\0\0MM\0*"s + Be(8, 4) + Be(1, 2) + Be(0x112, 2) + Be(3, 2) + Be(1, 4) +
                             Be(number, 2) + Be(0, 2) + Be(0, 4);
    return jpeg.substr(0, 2) + "\xff\xe1" + Be(tags.size() + 2, 2) + tags + jpeg.substr(2);
}

TEST(SmallPicture, FitsInItsBoxIsNeverEnlargedAndHoldsNothingButPixels) {
    for (const auto& [width, height, side, wanted] : {std::tuple{400, 200, 160, "160x80"},
                                                      {200, 400, 160, "80x160"},
                                                      {100, 60, 160, "100x60"},
                                                      {2000, 3, 160, "160x1"},
                                                      {1, 1, 160, "1x1"},
                                                      {1300, 1300, 320, "320x320"}}) {
        const std::string file = Quarters(width, height), jpeg = Small(file, side, 1 << 20);
        EXPECT_EQ(Look(jpeg).substr(0, strlen(wanted)), wanted);
        EXPECT_EQ(Look(Small(Small(file, 1280, 1 << 20), side)).substr(0, strlen(wanted)),
                  wanted);  // of a JPEG
    }
    const std::string jpeg = Small(WithOrientation(Small(Quarters(64, 32), 64), 1), 64);
    EXPECT_EQ(Look(jpeg), "64x32 RGBK");
    EXPECT_EQ(jpeg.find("Exif"), std::string::npos);
    EXPECT_EQ(Small(Quarters(64, 32), 64, jpeg.size() / 2), "");
}

TEST(SmallPicture, IsUpright) {
    const std::string jpeg = Small(Quarters(64, 32), 64);
    const char* const wanted[] = {"64x32 RGBK", "64x32 RGBK", "64x32 GRKB", "64x32 KBGR", "64x32 BKRG",
                                  "32x64 RBGK", "32x64 BRKG", "32x64 KGBR", "32x64 GKRB", "64x32 RGBK"};
    for (uint64_t number = 0; number < std::size(wanted); ++number)
        EXPECT_EQ(Look(Small(WithOrientation(jpeg, number), 64)), wanted[number]) << number;
}

std::string Icon(const std::vector<std::pair<uint64_t, std::string>>& pictures) {
    std::string entries, data;
    const size_t begin = 6 + 16 * pictures.size();
    for (const auto& [side, bytes] : pictures) {
        entries += Le(side, 1) + Le(side, 1) + Le(0, 2) + Le(1, 2) + Le(32, 2) + Le(bytes.size(), 4) +
                   Le(begin + data.size(), 4);
        data += bytes;
    }
    return Le(0, 2) + Le(1, 2) + Le(pictures.size(), 2) + entries + data;
}

TEST(SmallPicture, OfAnIconIsTheLargestOnWhite) {
    const std::string small = Bitmap(16, 16, {kBlack, kBlack, kBlack, kBlack}, true);
    const std::string large = Bitmap(32, 32, {kRed, kClear, kClear, kBlue}, true);
    EXPECT_EQ(Look(Small(Icon({{16, small}, {32, large}, {16, small}}), 160)), "32x32 RWWB");
    EXPECT_EQ(Look(Small(Icon({{32, large}, {0, ""}, {16, small}}), 160)), "32x32 RWWB");
    std::string rows;  // of a mask: the upper left quarter
    for (int i = 0; i < 32; ++i)
        rows += i < 16 ? Padded("", 4) : "\xff\xff\0\0"s;
    const std::string bare = Bitmap(32, 32, {"\0\0\xff\0"s, "\0\xff\0\0"s, "\xff\0\0\0"s, kClear}, true);
    EXPECT_EQ(Look(Small(Icon({{32, bare + rows}}), 160)), "32x32 WGBK");
    EXPECT_EQ(Look(Small(Icon({{32, large + rows}}), 160)), "32x32 RWWB");  // knows better itself
    EXPECT_EQ(Look(Small(Icon({{32, bare + rows.substr(1)}}), 160)), "32x32 RGBK");
    const std::string icon = Icon({{16, small}, {32, large}});
    for (size_t length = 0; length < icon.size() - 1; length += 13)  // a cut one is the smaller, or none
        EXPECT_NE(Look(Small(icon.substr(0, length), 160)).substr(0, 5), "32x32") << length;
}

/// One byte for each of 64 by 32 pixels: 0 to 3, the quarter.
std::string Plane(const std::function<char(int)>& value) {
    std::string plane;
    for (int i = 0; i < 64 * 32; ++i)
        plane += value(i / 64 / 16 * 2 + i % 64 / 32);
    return plane;
}

std::string Light(int channel) {  // of red, green, blue, black
    return Plane([&](int quarter) { return quarter == channel ? '\xff' : '\0'; });
}

std::string GifOfQuarters() {
    std::string codes;  // as wide as a byte, because the table is emptied before it grows
    for (const char pixel : Plane([](int quarter) { return static_cast<char>(quarter); }))
        codes += (codes.size() % 64 == 0 ? "\x80"s : ""s) + pixel;
    std::string blocks;
    for (size_t at = 0; at < codes.size(); at += 250)
        blocks += Le(std::min<size_t>(250, codes.size() - at), 1) + codes.substr(at, 250);
    const std::string colours = Padded("\xff\0\0\0\xff\0\0\0\xff"s, 384);
    return "GIF89a" + Le(64, 2) + Le(32, 2) + "\xf6\0\0"s + colours + ",\0\0\0\0"s + Le(64, 2) + Le(32, 2) +
           "\0\x07"s + blocks + "\x01\x81\0;"s;
}

std::string PngOfQuarters() {
    std::string rows;
    for (size_t at = 0; at < 64 * 32; ++at) {
        if (at % 64 == 0) rows += '\0';
        rows += {Light(0)[at], Light(1)[at], Light(2)[at], '\xff'};
    }
    uint64_t sum = 1, sums = 0;
    for (const char byte : rows) {
        sum = (sum + static_cast<uint8_t>(byte)) % 65521;
        sums = (sums + sum) % 65521;
    }
    const std::string data =
        "\x78\x01\x01" + Le(rows.size(), 2) + Le(~rows.size() & 0xFFFF, 2) + rows + Be(sums << 16 | sum, 4);
    return Png(64, 32) + Be(0, 7) + Be(data.size(), 4) + "IDAT" + data + Be(0, 8) + "IEND" + Be(0, 4);
}

std::string TiffOfQuarters(uint64_t orientation) {
    std::string tags;
    const std::pair<int, uint64_t> entries[] = {{256, 64}, {257, 32},     {258, 8},           {259, 1},
                                                {262, 1},  {273, 8},      {274, orientation}, {277, 1},
                                                {278, 32}, {279, 64 * 32}};
    for (const auto& [tag, value] : entries)
        tags +=
            Be(static_cast<uint64_t>(tag), 2) +
            (tag == 274 ? Be(3, 2) + Be(1, 4) + Be(value, 2) + Be(0, 2) : Be(4, 2) + Be(1, 4) + Be(value, 4));
    const std::string grey = Plane([](int quarter) { return quarter == 1 ? '\xff' : '\0'; });
    return "MM\0*"s + Be(8 + grey.size(), 4) + grey + Be(std::size(entries), 2) + tags + Be(0, 4);
}

TEST(SmallPicture, IsMadeOfEachFormat) {
    const std::string psd = "8BPS" + Be(1, 2) + Padded("", 6) + Be(3, 2) + Be(32, 4) + Be(64, 4) + Be(8, 2) +
                            Be(3, 2) + Padded("", 14) + Light(0) + Light(1) + Light(2);
    EXPECT_EQ(Look(Small(psd, 160)), "64x32 RGBK");
    EXPECT_EQ(Look(Small(GifOfQuarters(), 160)), "64x32 RGBK");
    EXPECT_EQ(Look(Small(PngOfQuarters(), 160)), "64x32 RGBK");
    EXPECT_EQ(Look(Small(TiffOfQuarters(1), 160)), "64x32 KWKK");
    EXPECT_EQ(Look(Small(TiffOfQuarters(6), 160)), "32x64 KKKW");
    EXPECT_EQ(Look(Small(TiffOfQuarters(9), 160)), "64x32 KWKK");
}

TEST(SmallPicture, OfPrintingColoursIsRight) {
    const std::string ink = "\xff\0\0\xff"s;  // inverted: neither cyan nor black
    std::string pixels;
    for (int i = 0; i < 64 * 64; ++i)
        pixels += ink;
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    const tjhandle codec = tjInitCompress();
    ASSERT_EQ(tjCompress2(codec, reinterpret_cast<const unsigned char*>(pixels.data()), 64, 0, 64, TJPF_CMYK,
                          &jpeg, &size, TJSAMP_444, 90, 0),
              0);
    std::string file(reinterpret_cast<char*>(jpeg), size);
    EXPECT_EQ(Look(Small(file, 160)), "64x64 RRRR");
    file.erase(file.find("Adobe") - 4, 16);  // of a program that does not invert them
    EXPECT_EQ(Look(Small(file, 160)), "64x64 KKKK");
    tjFree(jpeg);
    tjDestroy(codec);
}

/// Pictures, asked one by one.
struct Served : testing::Test {
    void SetUp() override {
        const ProbeGuardStatus guards = ProbeGuardStatusGet();
        if (!guards.system_call_filter && !guards.file_rules) GTEST_SKIP() << "the kernel guards no child";
    }
    ~Served() override { pictures_.Stop(); }
    void Start() {
        settings_.program = KOLI_MAKER;
        settings_.folder = folder_.Path("cache/small");
        std::string error;
        ASSERT_TRUE(pictures_.Start(settings_, &error)) << error;
        EXPECT_EQ(error, "");
        std::ifstream("/proc/self/task/" + std::to_string(getpid()) + "/children") >> maker_;
    }
    struct Answer {
        PictureResult result;
        std::string jpeg;
    };
    std::future<Answer> Ask(const std::string& path, PictureSide side = PictureSide::k160) {
        auto promise = std::make_shared<std::promise<Answer>>();
        pictures_.Ask(UniqueFd(open(path.c_str(), O_RDONLY | O_CLOEXEC)), path, side,
                      [promise](PictureResult result, std::string jpeg) {
                          promise->set_value({result, std::move(jpeg)});
                      });
        return promise->get_future();
    }
    static bool IsThere(const std::future<Answer>& answer) {
        return answer.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    }
    std::string Picture(int number) {
        return folder_.Write(std::to_string(number) + ".bmp", Quarters(40 + number, 40));
    }

    const TempDir folder_;
    PictureSettings settings_;
    Pictures pictures_;
    pid_t maker_ = std::numeric_limits<pid_t>::max();  // nobody's
};

TEST_F(Served, AreMadeOfWhatIsAPictureAndOfNothingElse) {
    Start();
    const std::string good = Quarters(64, 32);
    const std::pair<const char*, std::string> files[] = {
        {"empty", ""},
        {"page.jpg", "<html><script>alert(1)</script>"},
        {"list.svg", "<svg xmlns='http://www.w3.org/2000/svg'/>"},
        {"bomb.png",
         Png(100000, 100000) + Padded("\0\0\0"s, 7) + Be(1000, 4) + "IDAT" + Padded("\x78\x9c", 1000)},
        {"bomb.gif", "GIF89a\xff\xff\xff\xff\xf0"s + Padded("", 770) + ",\0\0\0\0\xff\xff\xff\xff\0\x08"s},
        {"bomb.bmp",
         "BM" + Padded("", 8) + Le(54, 4) + Le(40, 4) + Le(60000, 4) + Le(60000, 4) + Le(1, 2) + Le(24, 2)},
        {"bomb.psd",
         "8BPS" + Be(1, 2) + Padded("", 6) + Be(3, 2) + Be(300000, 4) + Be(300000, 4) + Be(8, 2) + Be(3, 2)},
        {"bomb.jpg", "\xff\xd8\xff\xc2"s + Be(17, 2) + "\x08" + Be(65500, 2) + Be(65500, 2) +
                         "\3\1\x22\0\2\x11\1\3\x11\1"s},
        {"cut.jpg", Small(good, 64).substr(0, 30)},
        {"icon.ico", Icon({{0, "\x89PNG\r\n"}})}};
    std::vector<std::future<Answer>> answers;
    for (const auto& [name, bytes] : files)
        answers.push_back(Ask(folder_.Write(name, bytes)));
    for (size_t i = 0; i < answers.size(); ++i)
        EXPECT_EQ(answers[i].get().result, PictureResult::kNoPicture) << files[i].first;
    EXPECT_TRUE(IsThere(Ask(folder_.Path("bomb.png"), PictureSide::k640)));  // not tried again
    EXPECT_EQ(Ask("/dev/zero").get().result, PictureResult::kNoPicture);

    const std::string wrong_name = folder_.Write("text.txt", good);
    const Answer small = Ask(wrong_name).get();
    EXPECT_EQ(small.result, PictureResult::kMade);
    EXPECT_EQ(Look(small.jpeg), "64x32 RGBK");
    folder_.Write("text.txt", Bitmap(64, 32, {kBlack, kRed, kRed, kRed}));  // another picture from now on
    EXPECT_EQ(Look(Ask(wrong_name).get().jpeg), "64x32 KRRR");
}

TEST_F(Served, AreMadeOnceForAllWhoAskAndKeptWithoutTheirMaker) {
    Start();
    const std::string path = Picture(1);
    kill(maker_, SIGSTOP);
    std::future<Answer> one = Ask(path), same = Ask(path), larger = Ask(path, PictureSide::k320);
    kill(maker_, SIGCONT);
    const std::string jpeg = one.get().jpeg;
    EXPECT_EQ(Look(jpeg), "41x40 RGBK");
    EXPECT_EQ(same.get().jpeg, jpeg);
    EXPECT_EQ(larger.get().result, PictureResult::kMade);
    Ask(Picture(2)).wait();  // by then the others are in the cache
    kill(maker_, SIGKILL);
    EXPECT_EQ(Ask(Picture(3)).get().result, PictureResult::kNotNow);
    EXPECT_EQ(Ask(path).get().jpeg, jpeg);
    pictures_.Stop();
    const std::future<Answer> late = Ask(path);
    EXPECT_TRUE(IsThere(late));
}

TEST_F(Served, AMakerThatEndedIsStartedAgain) {
    settings_.pause = std::chrono::seconds(0);
    Start();
    kill(maker_, SIGKILL);
    PictureResult result = PictureResult::kNotNow;  // until its end is noticed
    for (int i = 0; i < 100 && result == PictureResult::kNotNow; ++i)
        result = Ask(Picture(1)).get().result;
    EXPECT_EQ(result, PictureResult::kMade);
    Pictures none;
    std::string error;
    settings_.program = "/nowhere";
    EXPECT_FALSE(none.Start(settings_, &error));
    EXPECT_EQ(error, "/nowhere: No such file or directory");
    settings_.program = "/bin/true";
    EXPECT_FALSE(none.Start(settings_, &error));
    EXPECT_EQ(error, "the program that makes them does not start");
}

TEST_F(Served, TooManyPushOutTheOldestAndNobodyWaitsForGood) {
    settings_.waiting = 20;
    settings_.patience = std::chrono::seconds(5);
    Start();
    kill(maker_, SIGSTOP);
    std::vector<std::future<Answer>> answers;
    for (int i = 0; i < 60; ++i)
        answers.push_back(Ask(Picture(i)));
    const auto refused = std::count_if(answers.begin(), answers.end(), IsThere);
    EXPECT_GE(refused, 60 - 20 - 8);  // so many may be at work
    EXPECT_LE(refused, 60 - 20);
    EXPECT_FALSE(IsThere(answers.back()));
    for (std::future<Answer>& answer : answers)
        EXPECT_EQ(answer.get().result, PictureResult::kNotNow);
    kill(maker_, SIGCONT);
    EXPECT_EQ(Ask(Picture(61)).get().result, PictureResult::kMade);
    kill(maker_, SIGSTOP);
    std::future<Answer> last = Ask(Picture(62));
    pictures_.Stop();
    EXPECT_EQ(last.get().result, PictureResult::kNotNow);
    EXPECT_EQ(kill(maker_, 0), -1);
}

}  // namespace koli::serve::test
