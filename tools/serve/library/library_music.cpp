// Albums, artists, genres, years and their songs.
#include <algorithm>
#include <charconv>
#include <functional>
#include <tuple>

#include "tools/serve/library/library_impl.h"

namespace koli::serve {
namespace {

AlbumRow AlbumRowOf(const Snapshot& snapshot, uint32_t number) {
    const Record& record = snapshot.records[number];
    AlbumRow row;
    row.key = {snapshot.texts.Text(record.artist), snapshot.texts.Text(record.title)};
    row.is_of_several = record.is_of_several;
    row.year = record.year;
    row.songs = record.songs;
    row.cover = snapshot.PathOf(FileKind::kSong, record.cover);
    row.has_cover = record.has_cover;
    return row;
}

NamedRow NamedRowOf(const Snapshot& snapshot, const Named& named, std::string name) {
    return {.name = std::move(name),
            .count = named.count,
            .albums = named.records,
            .cover = snapshot.PathOf(FileKind::kSong, named.cover),
            .has_cover = named.has_cover};
}

/// Artists or genres.
Piece<NamedRow> TextPiece(const Snapshot& snapshot, const std::vector<Named>& list, Span span) {
    return PieceOf<NamedRow>(list, span, [&](const Named& named, NamedRow* row) {
        *row = NamedRowOf(snapshot, named, snapshot.texts.Text(named.value));
        return true;
    });
}

std::string YearText(uint32_t year) {
    return year != 0 ? std::to_string(year) : "";
}

/// The number in `list` whose text is `value`; false without one.
bool NumberIn(const Snapshot& snapshot, const std::vector<Named>& list, const std::string& value,
              uint32_t* number) {
    std::string folded;
    FoldLineTo(value, &folded);
    for (const Named& named : list) {
        *number = named.value;
        if (snapshot.texts.Folded(*number) == folded && snapshot.texts.Text(*number) == value) return true;
    }
    return false;
}

/// Which groups' songs are asked for; never true when there are none.
std::function<bool(const Group&)> GroupsBy(const Snapshot& snapshot, SongsBy by, const std::string& value) {
    uint32_t number = 0;
    const auto none = [](const Group&) { return false; };
    switch (by) {
        case SongsBy::kArtist:
            if (!NumberIn(snapshot, snapshot.artists, value, &number)) return none;
            return [number](const Group& group) { return group.artist == number; };
        case SongsBy::kGenre:
            if (!NumberIn(snapshot, snapshot.genres, value, &number)) return none;
            return [number](const Group& group) { return group.genre == number; };
        case SongsBy::kYear:
            std::from_chars(value.data(), value.data() + value.size(), number);
            if (YearText(number) != value) return none;
            return [number](const Group& group) { return group.year == number; };
    }
    return none;
}

}  // namespace

Piece<AlbumRow> AlbumPiece(const Snapshot& snapshot, const Numbers& records, Span span) {
    return PieceOf<AlbumRow>(records, span, [&](uint32_t record, AlbumRow* row) {
        *row = AlbumRowOf(snapshot, record);
        return true;
    });
}

Piece<NamedRow> ArtistPiece(const Snapshot& snapshot, const Numbers& artists, Span span) {
    return PieceOf<NamedRow>(artists, span, [&](uint32_t number, NamedRow* row) {
        const Named& artist = snapshot.artists[number];
        *row = NamedRowOf(snapshot, artist, snapshot.texts.Text(artist.value));
        return true;
    });
}

Piece<AlbumRow> Library::Albums(AlbumOrder order, Span span) const {
    const auto snapshot = impl_->Now();
    const Numbers* const orders[] = {&snapshot->by_title, &snapshot->by_artist, &snapshot->by_year,
                                     &snapshot->by_newest};
    return AlbumPiece(*snapshot, *orders[static_cast<size_t>(order)], span);
}

Piece<NamedRow> Library::Artists(Span span) const {
    const auto snapshot = impl_->Now();
    return TextPiece(*snapshot, snapshot->artists, span);
}

Piece<NamedRow> Library::Genres(Span span) const {
    const auto snapshot = impl_->Now();
    return TextPiece(*snapshot, snapshot->genres, span);
}

Piece<NamedRow> Library::Years(Span span) const {
    const auto snapshot = impl_->Now();
    return PieceOf<NamedRow>(snapshot->years, span, [&](const Named& named, NamedRow* row) {
        *row = NamedRowOf(*snapshot, named, YearText(named.value));
        return true;
    });
}

bool Library::Album(const AlbumKey& key, AlbumRow* album) const {
    const auto snapshot = impl_->Now();
    const size_t record = snapshot->RecordOf(key);
    if (record == snapshot->records.size()) return false;
    *album = AlbumRowOf(*snapshot, static_cast<uint32_t>(record));
    return true;
}

Piece<SongRow> Library::SongsOf(const AlbumKey& key, Span span) const {
    const auto snapshot = impl_->Now();
    const size_t record = snapshot->RecordOf(key);
    Numbers songs = snapshot->FilesWhere(FileKind::kSong,
                                         [record](const Group& group) { return group.record == record; });
    snapshot->SortSongs(&songs, span);
    return FilePiece<SongRow>(impl_->places(), *snapshot, FileKind::kSong, songs, span, &RowReader::Song);
}

Piece<SongRow> Library::Songs(SongsBy by, const std::string& value, Span span) const {
    const auto snapshot = impl_->Now();
    Numbers songs = snapshot->FilesWhere(FileKind::kSong, GroupsBy(*snapshot, by, value));
    snapshot->SortSongs(&songs, span);
    return FilePiece<SongRow>(impl_->places(), *snapshot, FileKind::kSong, songs, span, &RowReader::Song);
}

Piece<AlbumRow> Library::AlbumsOf(SongsBy by, const std::string& value, Span span) const {
    const auto snapshot = impl_->Now();
    const auto is_wanted = GroupsBy(*snapshot, by, value);
    const Blocks<Group>& groups = snapshot->Of(FileKind::kSong).groups;
    Numbers records;
    for (size_t group = 0; group < groups.size(); ++group)
        if (is_wanted(groups[group])) records.push_back(groups[group].record);
    const auto place = [&](uint32_t number) {
        const Record& record = snapshot->records[number];
        return std::tuple(record.year, snapshot->ranks[record.title], number);
    };
    std::sort(records.begin(), records.end(), [&](uint32_t a, uint32_t b) { return place(a) < place(b); });
    records.erase(std::unique(records.begin(), records.end()), records.end());
    return AlbumPiece(*snapshot, records, span);
}

}  // namespace koli::serve
