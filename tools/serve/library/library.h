// The library that the pages show: both databases, grouped, ordered and searched.
//
// What grouping, order and search need is held in memory, in a snapshot (snapshot.h) that a thread of its own
// makes anew after the databases have changed; the old one answers meanwhile.  The rows of a page are read
// from the databases by their paths, so that they are what is stored now; one that has gone since is left
// out of its piece.  Nothing here holds a database for longer than it reads some rows.
//
// All questions may be asked by several threads at once.  Each list is answered in pieces of at most `count`
// rows, from row `from` on: behind its end the piece is empty, and `total` tells all the same.  What fails
// gives an empty answer, and Error() tells why.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "base/unique_fd.h"
#include "tools/ctl/context.h"
#include "tools/ctl/path_reasons.h"
#include "tools/ctl/status_look.h"
#include "tools/serve/library/rows.h"

namespace koli::serve {

enum class AlbumOrder { kTitle, kArtist, kYear, kNewest };
enum class FileOrder { kTitle, kNewest };  // films; of pictures kNewest is when they were taken

/// A list that a file stands in: the songs of its album, the files of its folder; the pictures of its month.
enum class ListOf { kAlbum, kMonth };

/// What a list of songs is asked by; the value is a row's text, a year's as "1999".
enum class SongsBy { kArtist, kGenre, kYear };

enum class OpenVerdict {
    kOpened,
    kNotListed,  // the databases do not have it
    kGone,       // it is no longer there
    kNotServed   // it is behind a link, no regular file, or this user may not read it
};

class OpenRows;

class Library {
  public:
    explicit Library(const ctl::Places& places);
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    /// Starts to read the databases.  Not before the last fork of the process.
    void Start();
    /// Waits until they have been read once, or could not be; false when that takes more than `seconds`.
    bool WaitUntilRead(int seconds) const;
    /// Ends its thread; questions are still answered.
    void Stop();

    /// Why the databases could not be read when they were read last; "" = they were.  Before they have been
    /// read for the first time the library is empty, and this tells so.
    std::string Error() const;
    /// Another number after each time the databases have been read: for pages that keep what they made.
    uint64_t Version() const;

    /// While one lives, the questions of its thread read rows over one connection, which the first of them
    /// opens.  For as long as it takes to make a page: the daemon makes room for whoever is connected.
    class Page {
      public:
        explicit Page(const Library& library);
        ~Page();
        Page(const Page&) = delete;
        Page& operator=(const Page&) = delete;

      private:
        friend class PageRows;
        static OpenRows* RowsOf(const ctl::Places& places);

        const Library& library_;
        Page* const outer_;
        std::unique_ptr<OpenRows> rows_;
    };

    Totals Counts() const;

    // ---- Music

    Piece<AlbumRow> Albums(AlbumOrder order, Span span) const;
    Piece<NamedRow> Artists(Span span) const;  ///< as people order names
    Piece<NamedRow> Genres(Span span) const;
    Piece<NamedRow> Years(Span span) const;  ///< the latest first
    /// The album with that key; false without one.
    bool Album(const AlbumKey& key, AlbumRow* album) const;
    /// Its songs by disc and track.
    Piece<SongRow> SongsOf(const AlbumKey& key, Span span) const;
    /// Songs by album, disc and track; "" asks for those without an artist or genre.
    Piece<SongRow> Songs(SongsBy by, const std::string& value, Span span) const;
    /// The albums that these songs belong to, by year and title.
    Piece<AlbumRow> AlbumsOf(SongsBy by, const std::string& value, Span span) const;

    // ---- Films, pictures, playlists

    Piece<FilmRow> Films(FileOrder order, Span span) const;  ///< without the files that go with them
    Piece<PictureRow> Pictures(Span span) const;             ///< all, the newest first
    /// The months in which pictures were taken, the latest first; behind them "" for those that do not tell.
    Piece<NamedRow> Months(Span span) const;
    /// The pictures of a month, the latest first.
    Piece<PictureRow> PicturesOfMonth(const std::string& month, Span span) const;

    /// By name.  Their `users` are not filled in.
    Piece<PhotoAlbumRow> PhotoAlbums(Span span) const;
    /// The album with its users; false without one.
    bool PhotoAlbum(const std::string& name, PhotoAlbumRow* album) const;
    /// The albums directly in it, by name.
    Piece<PhotoAlbumRow> AlbumsIn(const std::string& name, Span span) const;
    /// The pictures directly in it, by path.
    Piece<PictureRow> PicturesIn(const std::string& name, Span span) const;
    /// Who a user is on this machine; the number as text where nobody knows.
    static std::string UserName(int64_t id);

    Piece<PlaylistRow> Playlists(Span span) const;  ///< by title
    /// A playlist and what it names; false when there is none at that path.
    bool Playlist(const std::string& path, PlaylistView* view) const;

    // ---- One path

    /// What stands directly in a folder, folders first; "/" has the tops of the shares.
    Piece<FolderEntry> Folder(const std::string& path, Span span) const;
    EntryView Entry(const std::string& path) const;
    /// The row of a song, film or picture; false without one.
    bool Song(const std::string& path, SongRow* song) const;
    bool Film(const std::string& path, FilmRow* film) const;
    bool Picture(const std::string& path, PictureRow* picture) const;
    /// Where a file stands in a list; `total` is 0 when it does not.
    Neighbours Beside(FileKind kind, const std::string& path, ListOf list) const;
    /// The album that holds a song; false when no such song is known.
    bool AlbumOfSong(const std::string& path, AlbumKey* key) const;
    /// Why what is stored for a path is not what is there, and what waits for it, as `why` tells; none: it
    /// is. Looks at the disk.
    ctl::Reasons WhyNotInStep(const std::string& path) const;
    /// A folder that is not there now, or is empty: of one with stored files its volume may not be mounted.
    /// Looks at the disk.
    static bool IsAway(const std::string& folder);

    /// Opens a file that the databases list, to read.  It is opened below its share, in which no link is
    /// followed; the share itself may be one.
    OpenVerdict OpenListed(const std::string& path, UniqueFd* file) const;
    /// Opens the picture that is to stand for a listed file: its cover (the first of those in
    /// DIR/@eaDir/NAME), of a picture itself.
    OpenVerdict OpenCover(const std::string& path, UniqueFd* file) const;

    // ---- Everything

    /// Of each kind the rows of `span`.  Totals are exact.  Words are searched in a file's name, tags and
    /// caption, of a long comment or caption in its beginning; of an album, an artist, a photo album in its
    /// own texts.  All of them must stand there.
    SearchView Search(std::string_view text, Span span) const;

    /// What could not be parsed or read, by path.
    Piece<ProblemRow> Problems(Span span) const;

    /// The daemon at this moment: what `status` tells.
    ctl::StatusLook Live() const;
    /// The same as `status --json` has it, without the databases.
    std::string LiveJson() const;

  private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace koli::serve
