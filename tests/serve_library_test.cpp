// The library of the pages: grouping, order, search, and which files can be opened.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
#include <thread>

#include "base/path_names.h"
#include "platform/host/database_groups.h"
#include "platform/kolidb.h"
#include "tests/host_place.h"
#include "tests/host_temp_dir.h"
#include "tools/ctl/store_reader.h"
#include "tools/serve/library/blocks.h"
#include "tools/serve/library/library.h"
#include "tools/serve/library/listed_file.h"
#include "tools/serve/library/moment.h"
#include "tools/serve/library/playlist_file.h"
#include "tools/serve/library/text_pool.h"

namespace koli::serve {
namespace {

using namespace std::string_literals;

template <typename Row>
std::string Titles(const Piece<Row>& piece) {
    std::string titles;
    for (const Row& row : piece.rows)
        titles += (titles.empty() ? "" : " ") + row.title;
    return titles;
}

std::string Albums(const Piece<AlbumRow>& piece) {
    std::string albums;
    for (const AlbumRow& row : piece.rows)
        albums += row.key.artist + (row.is_of_several ? "*" : "") + "/" + row.key.title + ":" +
                  std::to_string(row.songs) + " ";
    return albums;
}

class LibraryTest : public testing::Test {
  protected:
    LibraryTest() {
        test::MakeLibrary();
        host::DatabaseDirectorySet(databases_.c_str());
    }
    ~LibraryTest() override { host::DatabaseDirectorySet(nullptr); }

    template <size_t N>
    static void Put(char (&field)[N], const std::string& text) {
        CopyText(field, N, text.c_str());
    }
    static void Store(
        int type, const std::string& path, const std::string& title,
        const std::function<void(MediaInfo&)>& fill = [](MediaInfo&) {}) {
        MediaInfo record{};
        Put(record.path, path);
        Put(record.title, title);
        fill(record);
        ASSERT_EQ(MediaInfoDBSave(type, &record), 0);
    }
    static void Song(const std::string& path, const std::string& title, const std::string& artist,
                     const std::string& album, int disc = 0, int track = 0, int year = 0) {
        Store(kStoreMusic, "/volume1/music/" + path, title, [&](MediaInfo& record) {
            Put(record.artist, artist);
            Put(record.album, album);
            record.disc = disc;
            record.track = track;
            record.year = year;
            record.has_cover = track == 2 ? 1 : 0;
        });
    }
    static void Photo(const std::string& path, const std::string& title, const std::string& taken) {
        PhotoRecord record{};
        Put(record.path, "/volume1/photo/" + path);
        Put(record.name, FileNameOf(path.c_str()));
        Put(record.title, title);
        Put(record.date_taken, taken);
        ASSERT_EQ(PhotoInfoDBSave(&record, 1), 0);
    }
    const Library& Read() {
        KOLIDBSync();
        host::DatabaseDirectorySet(nullptr);
        places_.databases = databases_;
        library_ = std::make_unique<Library>(places_);
        library_->Start();
        EXPECT_TRUE(library_->WaitUntilRead(60));
        EXPECT_EQ(library_->Error(), "");
        return *library_;
    }

    const Span all_{};
    const test::TempDir dir_;
    const std::string databases_ = test::PlaceOr(dir_.dir());
    ctl::Places places_;
    std::unique_ptr<Library> library_;
};

TEST_F(LibraryTest, SongsAreAlbumsByTitleAndArtistWhereverTheyLie) {
    Song("A/Live/CD 2/1.mp3", "d", "Ann", "Live", 2, 1, 1999);
    Song("A/Live/CD 1/2.mp3", "b", "Ann", "Live", 1, 2, 1999);
    Song("A/Live/CD 1/1.mp3", "a", "Ann", "Live", 1, 1, 1998);
    Song("B/Live/1.mp3", "x", "Bob", "Live", 1, 1, 2001);
    Song("Hits/1.mp3", "h1", "Ann", "Hits", 0, 1);
    Song("Hits/2.mp3", "h2", "Élan", "Hits", 0, 3);
    Song("loose/y.mp3", "", "", "", 0, 0);
    const Library& library = Read();
    EXPECT_EQ(Albums(library.Albums(AlbumOrder::kTitle, all_)), "/:1 */Hits:2 Ann/Live:3 Bob/Live:1 ");
    EXPECT_EQ(Albums(library.Albums(AlbumOrder::kYear, {.from = 0, .count = 2})), "Bob/Live:1 Ann/Live:3 ");
    AlbumRow album;
    ASSERT_TRUE(library.Album({"Ann", "Live"}, &album));
    EXPECT_EQ(album.cover, "/volume1/music/A/Live/CD 1/2.mp3");
    EXPECT_EQ(album.year, 1999);
    EXPECT_EQ(Titles(library.SongsOf({"Ann", "Live"}, all_)), "a b d");
    const auto second = library.SongsOf({"Ann", "Live"}, {.from = 1, .count = 1});
    EXPECT_EQ(Titles(second) + std::to_string(second.total), "b3");
    EXPECT_EQ(library.SongsOf({"Ann", "Live"}, {.from = 9, .count = SIZE_MAX}).rows.size(), 0U);
    EXPECT_FALSE(library.Album({"ann", "Live"}, &album));
    EXPECT_EQ(Titles(library.SongsOf({"", ""}, all_)), "y.mp3");
    EXPECT_EQ(Titles(library.Songs(SongsBy::kArtist, "Ann", all_)), "h1 a b d");
    EXPECT_EQ(Albums(library.AlbumsOf(SongsBy::kArtist, "Ann", all_)), "*/Hits:2 Ann/Live:3 ");
    EXPECT_EQ(Titles(library.Songs(SongsBy::kYear, "1999", all_)), "b d");
    EXPECT_EQ(library.Songs(SongsBy::kYear, "1999x", all_).total, 0U);
    std::string artists;
    for (const NamedRow& artist : library.Artists(all_).rows)
        artists += artist.name + std::to_string(artist.count) + std::to_string(artist.albums) + " ";
    EXPECT_EQ(artists, "11 Ann42 Bob11 Élan11 ");
}

TEST_F(LibraryTest, PicturesOfBothDatabasesAreOneByDateAndAlbum) {
    Photo("Trip/b.jpg", "Sunset", "2024:05:31 10:11:12");
    Photo("Trip/Day 2/c.jpg", "", "2024-06-01 00:00:00");
    Store(kStorePhoto, "/volume1/photo/Trip/b.jpg", "b",
          [](MediaInfo& record) { Put(record.camera_model, "M"); });
    Store(kStorePhoto, "/volume1/music/scan.jpg", "scan",
          [](MediaInfo& record) { Put(record.date_taken, "1955-5-1 1:2:3"); });
    Store(kStorePhoto, "/volume1/music/none.jpg", "none");
    for (const char* sql :
         {"INSERT INTO photo_share (shareid, sharename, public) VALUES (7, 'Trip', 'f')",
          "INSERT INTO photo_share (sharename, title, public) VALUES ('Trip/Day 2', 'Second', 't')",
          "INSERT INTO photo_access_right (shareid, userid) VALUES (7, 0)"})
        ASSERT_EQ(PhotoDBExec(sql), 1);
    const Library& library = Read();
    EXPECT_EQ(Titles(library.Pictures(all_)), "c.jpg Sunset scan none");
    std::string months;
    for (const NamedRow& month : library.Months(all_).rows)
        months += month.name + ":" + std::to_string(month.count) + " ";
    EXPECT_EQ(months, "2024-06:1 2024-05:1 1955-05:1 :1 ");
    const auto may = library.PicturesOfMonth("2024-05", all_);
    ASSERT_EQ(may.rows.size(), 1U);
    EXPECT_EQ(may.rows[0].camera + " " + may.rows[0].taken + " " + may.rows[0].album,
              "M 2024-05-31 10:11:12 Trip");
    EXPECT_EQ(library.PicturesOfMonth("2024-5", all_).total, 0U);
    EXPECT_EQ(Titles(library.PhotoAlbums(all_)), "Trip Second");
    EXPECT_EQ(Titles(library.AlbumsIn("Trip", all_)), "Second");
    EXPECT_EQ(Titles(library.PicturesIn("Trip", all_)), "Sunset");
    PhotoAlbumRow album;
    ASSERT_TRUE(library.PhotoAlbum("Trip", &album));
    EXPECT_FALSE(album.is_public);
    EXPECT_EQ(album.users, std::vector<int64_t>{0});
    EXPECT_EQ(Library::UserName(0), "root");
    EXPECT_EQ(album.cover, "/volume1/photo/Trip/Day 2/c.jpg");
    std::string folders;
    for (const char* folder : {"/", "/volume1", "/volume1/photo/Trip"})
        for (const FolderEntry& entry : library.Folder(folder, all_).rows)
            folders += entry.path + " ";
    EXPECT_EQ(folders,
              "/volume1/music /volume1/photo /volume1/music /volume1/photo /volume1/photo/Trip/Day 2 "
              "/volume1/photo/Trip/b.jpg ");
}

TEST_F(LibraryTest, AFileKnowsWhatStandsBesideIt) {
    Song("L/2.mp3", "second", "Ann", "Live", 1, 2);
    Song("L/1.mp3", "without a number", "Ann", "Live");
    Song("M/3.mp3", "other disc", "Ann", "Live", 2, 1);
    Song("X/4.mp3", "other album", "Bob", "Live", 1, 1);
    Photo("T/1.jpg", "", "2024:05:01 10:00:00");
    Photo("T/2.jpg", "", "2023:05:01 10:00:00");
    Photo("U/3.jpg", "", "2024:05:02 10:00:00");
    for (const char* name : {"f.mkv", "f.srt", "f.IFO", "g.avi"})
        Store(kStoreVideo, std::string("/volume1/video/") + name, name);
    const Library& library = Read();
    const auto beside = [&](FileKind kind, const std::string& path, ListOf list = ListOf::kAlbum) {
        const Neighbours near = library.Beside(kind, "/volume1/" + path, list);
        const auto name = [](const std::string& of) { return of.substr(of.rfind('/') + 1); };
        return name(near.before) + "<" + std::to_string(near.at) + "/" + std::to_string(near.total) + ">" +
               name(near.behind);
    };
    EXPECT_EQ(beside(FileKind::kSong, "music/L/2.mp3"), "<0/3>3.mp3");
    EXPECT_EQ(beside(FileKind::kSong, "music/M/3.mp3"), "2.mp3<1/3>1.mp3");
    EXPECT_EQ(beside(FileKind::kSong, "music/X/5.mp3"), "<0/0>");
    EXPECT_EQ(beside(FileKind::kPicture, "photo/T/1.jpg"), "<0/2>2.jpg");
    EXPECT_EQ(beside(FileKind::kPicture, "photo/T/1.jpg", ListOf::kMonth), "3.jpg<1/2>");
    AlbumKey album;
    ASSERT_TRUE(library.AlbumOfSong("/volume1/music/X/4.mp3", &album));
    EXPECT_EQ(album, (AlbumKey{"Bob", "Live"}));
    EXPECT_FALSE(library.AlbumOfSong("/volume1/music/X/5.mp3", &album));
    EXPECT_EQ(Titles(library.Films(FileOrder::kTitle, all_)), "f.mkv g.avi");
    EXPECT_EQ(beside(FileKind::kFilm, "video/g.avi"), "f.mkv<1/2>");
    EXPECT_EQ(library.Counts().films, 2U);
    const test::TempDir empty;
    constexpr timespec kFar{5'000'000'000, 0}, kTimes[] = {kFar, kFar};
    EXPECT_EQ(utimensat(AT_FDCWD, empty.dir().c_str(), kTimes, 0), 0);
    EXPECT_TRUE(Library::IsAway(dir_.dir() + "/none") && Library::IsAway(empty.dir()));
    EXPECT_FALSE(Library::IsAway("/proc") || Library::IsAway("/etc/passwd"));
    const ctl::Reasons reasons = library.WhyNotInStep("/volume1/music/X/4.mp3");
    EXPECT_TRUE(std::any_of(reasons.begin(), reasons.end(),
                            [](const ctl::Reason& reason) { return reason.code == "gone"; }));
}

TEST_F(LibraryTest, SearchFindsAllWordsTheBestFirst) {
    Song("1/01 - Overlove.mp3", "Overlove", "Zoë", "Nights");
    Song("1/02 - My Love.mp3", "My Love", "Zoë", "Nights");
    Song("1/03 - Love.mp3", "Love", "Zoë", "Nights");
    Song("2/x.mp3", "夜に駆ける", "ЁЛКА", "100% GRÜSSE");
    Song("2/y\nlove.mp3", "odd", "", "100% GRÜSSE");
    Photo("T/img.jpg", "Love on the Zoë", "");
    const Library& library = Read();
    const auto found = [&](std::string_view text) {
        const SearchView view = library.Search(text, all_);
        return Titles(view.songs) + "|" + Titles(view.pictures) + "|" + Albums(view.albums) + "|" +
               std::to_string(view.artists.total);
    };
    EXPECT_EQ(found("LOVE"), "Love My Love Overlove odd|Love on the Zoë||0");
    EXPECT_EQ(found("love zOE\xCC\x88"), "Love My Love Overlove|Love on the Zoë||0");
    EXPECT_EQ(found("夜 ёлка grüsse%"), "|||0");
    EXPECT_EQ(found("夜 ёлка grüße"), "夜に駆ける|||0");
    EXPECT_EQ(found("ni"), "Overlove My Love Love||Zoë/Nights:3 |0");
    EXPECT_EQ(found("zoë"), "Overlove My Love Love|Love on the Zoë|Zoë/Nights:3 |1");
    EXPECT_FALSE(library.Search(" \0 "s, all_).has_words);
    // The odd name is given back as it is, though it is searched on one line.
    ASSERT_EQ(library.Search("y love", all_).songs.rows.size(), 2U);
    EXPECT_EQ(library.Search("odd", all_).songs.rows.at(0).path, "/volume1/music/2/y\nlove.mp3");
}

TEST_F(LibraryTest, ChangesOfOthersShow) {
    Song("a.mp3", "a", "", "");
    KOLIDBSync();
    places_.databases = databases_;
    // Each look has a connection of its own.
    const auto mark = [this] {
        ctl::StoreReader store;
        EXPECT_TRUE(store.Open(places_));
        return store.ChangeMark();
    };
    const std::string before = mark();
    EXPECT_EQ(mark(), before);
    Song("b.mp3", "b", "", "");
    KOLIDBSync();
    const std::string after = mark();
    EXPECT_NE(after, before);
    Photo("p.jpg", "", "");  // makes the photo database
    KOLIDBSync();
    const std::string both = mark();
    EXPECT_NE(both, after);
    host::DatabaseDirectorySet(nullptr);  // its log goes with the last connection, and looks make a new one
    const std::string closed = mark();
    EXPECT_NE(closed, both);
    EXPECT_EQ(mark(), closed);
}

TEST_F(LibraryTest, APageOpensTheDatabasesOnceAndLeavesThem) {
    Song("a.mp3", "a", "", "");
    Photo("p.jpg", "", "");
    KOLIDBSync();
    places_.databases = databases_;
    host::DatabaseDirectorySet(nullptr);
    const auto open_databases = [this] {
        return std::ranges::count_if(
            std::filesystem::directory_iterator("/proc/self/fd"), [&](const auto& fd) {
                std::error_code closed;
                const std::string target = std::filesystem::read_symlink(fd.path(), closed);
                return (target.starts_with(dir_.dir()) && target.ends_with(".db")) ||
                       target.starts_with("socket:");
            });
    };
    const Library library(places_), other(places_);
    const auto has_song = [](const Library& asked) {
        SongRow song;
        return asked.Song("/volume1/music/a.mp3", &song);
    };
    {
        const Library::Page page(library);
        EXPECT_EQ(open_databases(), 0);  // lists of albums and the like take none
        for (int i = 0; i < 2; ++i)
            EXPECT_TRUE(has_song(library));
        EXPECT_EQ(library.Problems(all_).total, 0U);
        EXPECT_EQ(open_databases(), 2);
        EXPECT_TRUE(has_song(other));
        std::thread([&] { EXPECT_TRUE(has_song(library)); }).join();
    }
    EXPECT_EQ(open_databases(), 0);
}

TEST(BlocksTest, ShareWhatIsTheSameAndNothingElse) {
    constexpr int kCount = 5000, kChanged = 2500;
    Blocks<int> earlier, next;
    next.ShareWith(earlier);
    for (int i = 0; i < kCount; ++i)
        earlier.push_back(i);
    for (int i = 0; i < kCount + 2000; ++i)
        next.push_back(i == kChanged ? -1 : i);
    next.Finish();
    for (int i = 0; i < kCount; ++i)
        EXPECT_EQ(earlier[static_cast<size_t>(i)], i);
    EXPECT_EQ(next[kChanged], -1);
    EXPECT_EQ(next[kCount + 1999], kCount + 1999);
    EXPECT_EQ(&next[0], &earlier[0]);
    EXPECT_NE(&next[kChanged], &earlier[kChanged]);
}

TEST(TextPoolTest, GivesEveryTextBackAndSharesWhatItHasInCommon) {
    const std::vector<std::string> texts = {"",
                                            "Plain CAPS 01",
                                            "Étude",
                                            "Straße",
                                            "\xFF\xFE raw",
                                            "a\nb",
                                            "夜",
                                            "ﬁ",
                                            "İi\x01",
                                            "МОСКВА",
                                            std::string(70000, 'Q'),
                                            "E\xCC\x81te"};
    constexpr int kRounds = 3000;  // over many blocks
    const auto fill = [&](TextPool* pool) {
        std::vector<std::pair<uint32_t, std::string>> places;
        for (int round = 0; round < kRounds; ++round)
            for (const std::string& text : texts)
                if (text.size() < 100) {
                    const std::string own = text + std::to_string(round);
                    places.emplace_back(pool->Add(own, "caption\n"), own);
                } else if (round == 0) {
                    places.emplace_back(pool->Add(text), text);
                }
        pool->Finish();
        return places;
    };
    TextPool pool, next;
    const auto places = fill(&pool);
    for (const auto& [place, text] : places)
        ASSERT_EQ(pool.Text(place), text);
    size_t found = 0;
    for (uint32_t at = 0; (at = pool.Find("strasse7\ncaption", at)) != TextPool::kNone; ++at)
        ++found;
    EXPECT_EQ(found, 1U);

    // Whatever is new stands in front, and moves all that follows.
    next.ShareWith(pool);
    EXPECT_EQ(next.Text(next.Add("New")), "New");
    const auto moved = fill(&next);
    size_t shared = 0;
    for (size_t i = 0; i < moved.size(); ++i) {
        ASSERT_EQ(next.Text(moved[i].first), moved[i].second);
        shared += next.Entry(moved[i].first).data() == pool.Entry(places[i].first).data() ? 1 : 0;
    }
    EXPECT_GT(shared, moved.size() / 2);
    EXPECT_LT(shared, moved.size());
}

TEST(ListedFileTest, NothingIsOpenedThroughALink) {
    const test::TempDir dir;
    const std::string share = dir.MakeDir("music"), outside = dir.MakeDir("outside");
    dir.Write("music/album/song", "inside");
    dir.Write("music/album/@eaDir/song/cover10.jpg", "ten");
    dir.Write("music/album/@eaDir/song/cover2.png", "two");
    for (const char* none :
         {"cover.jpg", "cover1", "cover0.jpg", "cover01.jpg", "coverx1.jpg", "cover-1.jpg"})
        dir.Write(std::string("music/album/@eaDir/song/") + none, "none");
    dir.Write("outside/song", "outside");
    const auto text = [](const UniqueFd& file) {
        char bytes[16] = {};
        return pread(file.get(), bytes, sizeof bytes - 1, 0) > 0 ? std::string(bytes) : "";
    };
    const auto verdict = [&](const std::string& path) {
        UniqueFd file;
        return OpenBelowShare(share + path, &file);
    };
    UniqueFd file;
    ASSERT_EQ(OpenBelowShare(share + "/album/song", &file), OpenVerdict::kOpened);
    EXPECT_EQ(text(file), "inside");
    ASSERT_EQ(OpenFirstCover(share + "/album/song", &file), OpenVerdict::kOpened);
    EXPECT_EQ(text(file), "two");
    ASSERT_EQ(symlink((outside + "/song").c_str(), (share + "/link").c_str()), 0);
    ASSERT_EQ(symlink(outside.c_str(), (share + "/folder").c_str()), 0);
    ASSERT_EQ(mkfifo((share + "/fifo").c_str(), 0600), 0);
    EXPECT_EQ(verdict("/link"), OpenVerdict::kNotServed);
    EXPECT_NE(verdict("/folder/song"), OpenVerdict::kOpened);
    EXPECT_EQ(verdict("/fifo"), OpenVerdict::kNotServed);
    EXPECT_EQ(verdict("/album"), OpenVerdict::kNotServed);
    EXPECT_EQ(verdict("/gone"), OpenVerdict::kGone);
    for (const std::string& path : {"/../outside/song"s, "/album/../../outside/song"s, "//album/song"s,
                                    "/./album/song"s, "/album/song/"s, "/album/song\0x"s})
        EXPECT_NE(verdict(path), OpenVerdict::kOpened) << path;

    // Somebody swaps the folder for a link all the time.
    std::atomic<bool> is_ending = false;
    std::thread swapper([&] {
        while (!is_ending)
            syscall(SYS_renameat2, AT_FDCWD, (share + "/album").c_str(), AT_FDCWD,
                    (share + "/folder").c_str(), RENAME_EXCHANGE);
    });
    int opened = 0;
    for (int i = 0; i < 4000 || opened == 0; ++i) {  // a busy machine has the swapper rest on the link
        UniqueFd one;
        if (OpenBelowShare(share + "/album/song", &one) != OpenVerdict::kOpened) continue;
        ++opened;
        EXPECT_EQ(text(one), "inside");
    }
    is_ending = true;
    swapper.join();
}

TEST(PlaylistFileTest, EntriesBecomePathsOfTheLibrary) {
    const auto lines = PlaylistLines("\xEF\xBB\xBF#EXTM3U\r\n#EXTINF:1,A, B\r\n..\\x.mp3\r\n\r\n/v/y.mp3", 9);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].title + lines[0].path + lines[1].title + lines[1].path, "A, B..\\x.mp3/v/y.mp3");
    const auto media =
        PlaylistLines("<?wpl?><smil><media src=\"a &amp; b.mp3\"/><media src='c'><media src=\"", 9);
    ASSERT_EQ(media.size(), 2U);
    EXPECT_EQ(media[0].path + media[1].path, "a & b.mp3c");
    EXPECT_EQ(PlaylistTarget("/v/lists/p.m3u", "..\\x.mp3"), "/v/x.mp3");
    EXPECT_EQ(PlaylistTarget("/v/lists/p.m3u", "./a//b.mp3"), "/v/lists/a/b.mp3");
    EXPECT_EQ(PlaylistTarget("/v/lists/p.m3u", "../../../x"), "");
    EXPECT_EQ(PlaylistTarget("/v/lists/p.m3u", "http://x/y.mp3"), "");
}

TEST(MomentTest, BothFormsOfATimeAreOrdered) {
    EXPECT_EQ(MomentOf("Fri May 31 10:11:12 2024\n"), MomentOf("2024:5:31 10:11:12"));
    EXPECT_LT(MomentOf("2024-05-31 10:11:12"), MomentOf("2024:05:31 10:12:00"));
    EXPECT_LT(MomentOf("1955-01-01"), MomentOf("1955-02-01"));
    EXPECT_NE(MomentOf("1955-01-01"), 0U);
    for (const char* text : {"", "0000:00:00 00:00:00", "2024-13-01", "2024-05", "Fri Foo 31 10:11:12 2024",
                             "99999999999999-1-1", "2024-05-31 25:00:00"})
        EXPECT_EQ(MomentOf(text), 0U) << text;
}

}  // namespace
}  // namespace koli::serve
