// Search, problems and the daemon at this moment.
#include "platform/host/tables.h"
#include "tools/ctl/searched.h"
#include "tools/serve/library/library_impl.h"
#include "tools/serve/library/matches.h"

namespace koli::serve {

SearchView Library::Search(std::string_view text, Span span) const {
    SearchView view;
    const std::vector<std::string> words = ctl::SearchedWords({std::string(text)});
    if (words.empty()) return view;
    const auto snapshot = impl_->Now();
    const ctl::Places& places = impl_->places();
    const Matches matches(*snapshot, words);
    view.has_words = true;
    view.albums = AlbumPiece(*snapshot, matches.Records(), span);
    view.artists = ArtistPiece(*snapshot, matches.Artists(), span);
    view.songs = FilePiece<SongRow>(places, *snapshot, FileKind::kSong, matches.Files(FileKind::kSong), span,
                                    &RowReader::Song);
    view.films = FilePiece<FilmRow>(places, *snapshot, FileKind::kFilm, matches.Files(FileKind::kFilm), span,
                                    &RowReader::Film);
    view.pictures = PicturePiece(places, *snapshot, matches.Files(FileKind::kPicture), span);
    view.photo_albums = PhotoAlbumPiece(places, *snapshot, matches.PhotoAlbums(), span);
    view.playlists = FilePiece<PlaylistRow>(places, *snapshot, FileKind::kPlaylist,
                                            matches.Files(FileKind::kPlaylist), span, &RowReader::Playlist);
    return view;
}

Piece<ProblemRow> Library::Problems(Span span) const {
    const PageRows page(impl_->places());
    Piece<ProblemRow> piece{.rows = {}, .from = span.from};
    if (!page.is_open()) return piece;
    const ctl::StoreReader& store = page.store();
    piece.total = static_cast<size_t>(store.Count(host::kProblemTable));
    const auto rows = store.List(host::kProblemTable, {"path", "time", "reason"},
                                 {.limit = static_cast<int64_t>(std::min(span.count, kPieceMax)),
                                  .offset = static_cast<int64_t>(std::min(span.from, piece.total))});
    while (rows != nullptr && span.count > 0 && rows->Next())
        piece.rows.push_back(
            {std::string(rows->Field(0)), std::string(rows->Field(1)), std::string(rows->Field(2))});
    return piece;
}

ctl::StatusLook Library::Live() const {
    return ctl::StatusLookNow(impl_->places());
}

std::string Library::LiveJson() const {
    const ctl::StatusLook look = Live();
    return ctl::RecordJson(ctl::RecordOf(look), {ctl::WatchedOf(look)}, true);
}

}  // namespace koli::serve
