// The rows of a page, read by their paths.
#pragma once

#include <memory>
#include <string>

#include "tools/ctl/store_reader.h"
#include "tools/serve/library/rows.h"

namespace koli::serve {

/// Of databases that are open.  Each question costs a look-up or two by key; false: there is no such row.
class RowReader {
  public:
    explicit RowReader(const ctl::StoreReader& store) : store_(store) {}

    bool Song(const std::string& path, SongRow* song);
    bool Film(const std::string& path, FilmRow* film);
    bool Picture(const std::string& path, PictureRow* picture);
    bool Playlist(const std::string& path, PlaylistRow* playlist);
    /// Fills in what its row tells; the rest stays.
    bool PhotoAlbum(const std::string& name, PhotoAlbumRow* album);
    /// Who may see an album.
    std::vector<int64_t> UsersOf(const std::string& album) const;
    /// Whether the databases list a file, and as what.
    bool KindOf(const std::string& path, FileKind* kind);

  private:
    using Statement = std::unique_ptr<host::SqlStatement>;
    bool Look(Statement* statement, const char* table, const std::vector<std::string>& columns,
              const std::string& key);

    const ctl::StoreReader& store_;
    Statement song_, film_, picture_, playlist_, caption_, photo_, album_;
};

}  // namespace koli::serve
