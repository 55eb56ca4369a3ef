// Albums, names, months and orders of a snapshot.
#include <algorithm>
#include <map>
#include <numeric>
#include <unordered_map>
#include <utility>

#include "tools/serve/library/order.h"
#include "tools/serve/library/snapshot_read.h"

namespace koli::serve {
namespace {

constexpr uint32_t kSeveral = UINT32_MAX;

uint64_t Both(uint32_t a, uint32_t b) {
    return uint64_t{a} << 32 | b;
}

/// The songs of a folder that name the same album are of one artist or of several; what has title and artist
/// in common is one album, wherever it lies.
void MakeRecords(Snapshot* snapshot) {
    FilesOfKind& songs = snapshot->Of(FileKind::kSong);
    std::unordered_map<uint64_t, uint32_t> artists;  // by folder and album
    for (size_t i = 0; i < songs.groups.size(); ++i) {
        const Group& group = songs.groups[i];
        const auto [found, is_new] = artists.try_emplace(Both(group.folder, group.album), group.artist);
        if (!is_new && found->second != group.artist) found->second = kSeveral;
    }
    std::unordered_map<uint64_t, uint32_t> records;  // by album and artist
    for (size_t i = 0; i < songs.groups.size(); ++i) {
        Group& group = songs.groups[i];
        const uint32_t artist = artists[Both(group.folder, group.album)];
        const bool is_of_several = artist == kSeveral;
        const auto [found, is_new] = records.try_emplace(Both(group.album, is_of_several ? 0 : artist),
                                                         static_cast<uint32_t>(snapshot->records.size()));
        group.record = found->second;
        if (is_new)
            snapshot->records.push_back(
                {.title = group.album, .artist = is_of_several ? 0 : artist, .cover = group.first});
        Record& record = snapshot->records[group.record];
        record.is_of_several |= is_of_several;
        record.songs += songs.Behind(i) - songs.First(i);
        record.year = std::max(record.year, group.year);
        for (uint32_t song = songs.First(i); song < songs.Behind(i); ++song) {
            record.newest = std::max(record.newest, songs.files[song].moment);
            if (record.has_cover || !songs.files[song].has_cover) continue;
            record.has_cover = true;
            record.cover = song;
        }
    }
}

using Pairs = std::vector<std::pair<uint32_t, uint32_t>>;  // what a group is called, and the group

/// Counts what groups with the same value have; of `pairs` in any order.
std::vector<Named> Counted(const Snapshot& snapshot, Pairs pairs) {
    const FilesOfKind& songs = snapshot.Of(FileKind::kSong);
    std::sort(pairs.begin(), pairs.end());
    std::vector<Named> named;
    std::vector<uint32_t> records;
    const auto close = [&] {
        std::sort(records.begin(), records.end());
        if (!named.empty())
            named.back().records =
                static_cast<uint32_t>(std::unique(records.begin(), records.end()) - records.begin());
        records.clear();
    };
    for (const auto& [value, number] : pairs) {
        const Group& group = songs.groups[number];
        if (named.empty() || named.back().value != value) {
            close();
            named.push_back(
                {.value = value, .count = 0, .records = 0, .cover = group.first, .has_cover = false});
        }
        Named& last = named.back();
        last.count += songs.Behind(number) - songs.First(number);
        records.push_back(group.record);
        if (!last.has_cover && snapshot.records[group.record].has_cover) {
            last.has_cover = true;
            last.cover = snapshot.records[group.record].cover;
        }
    }
    close();
    return named;
}

template <typename Value>
std::vector<Named> NamedBy(const Snapshot& snapshot, Value value) {
    const FilesOfKind& songs = snapshot.Of(FileKind::kSong);
    Pairs pairs;
    for (size_t group = 0; group < songs.groups.size(); ++group)
        pairs.emplace_back(value(songs.groups[group]), static_cast<uint32_t>(group));
    return Counted(snapshot, std::move(pairs));
}

void OrderNamed(const Snapshot& snapshot, std::vector<Named>* named) {
    std::sort(named->begin(), named->end(), [&](const Named& a, const Named& b) {
        return snapshot.ranks[a.value] < snapshot.ranks[b.value];
    });
}

/// Ranks of the texts that are artists, albums and genres; the others have none.
void RankTexts(Snapshot* snapshot) {
    Numbers texts{0};
    const FilesOfKind& songs = snapshot->Of(FileKind::kSong);
    for (size_t i = 0; i < songs.groups.size(); ++i)
        for (const uint32_t text : {songs.groups[i].artist, songs.groups[i].album, songs.groups[i].genre})
            texts.push_back(text);
    std::sort(texts.begin(), texts.end());
    texts.erase(std::unique(texts.begin(), texts.end()), texts.end());
    const Numbers order =
        OrderedByText(std::move(texts), [&](uint32_t text) { return snapshot->texts.Text(text); });
    snapshot->ranks.assign(snapshot->texts.places.size(), 0);
    for (size_t i = 0; i < order.size(); ++i)
        snapshot->ranks[order[i]] = static_cast<uint32_t>(i);
}

template <typename Key>
Numbers OrderedBy(size_t count, Key key) {
    Numbers order(count);
    std::iota(order.begin(), order.end(), 0U);
    std::sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) { return key(a) < key(b); });
    return order;
}

void OrderRecords(Snapshot* snapshot) {
    const Blocks<Record>& records = snapshot->records;
    const Numbers& ranks = snapshot->ranks;
    const auto title = [&](uint32_t i) { return ranks[records[i].title]; };
    const auto artist = [&](uint32_t i) { return ranks[records[i].artist]; };
    snapshot->by_title =
        OrderedBy(records.size(), [&](uint32_t i) { return std::tuple(title(i), artist(i), i); });
    snapshot->by_artist = OrderedBy(
        records.size(), [&](uint32_t i) { return std::tuple(artist(i), records[i].year, title(i), i); });
    snapshot->by_year = OrderedBy(
        records.size(), [&](uint32_t i) { return std::tuple(-records[i].year, title(i), artist(i), i); });
    snapshot->by_newest =
        OrderedBy(records.size(), [&](uint32_t i) { return std::tuple(~records[i].newest, title(i), i); });
}

Numbers FilmsOf(const FilesOfKind& films, Numbers numbers) {
    std::erase_if(numbers, [&films](uint32_t number) { return !IsFilm(films, number); });
    return numbers;
}

Numbers FilesByNewest(const FilesOfKind& files) {
    return OrderedBy(files.files.size(), [&](uint32_t i) { return std::pair(~files.files[i].moment, i); });
}

Numbers FilesByTitle(const FilesOfKind& files) {
    Numbers numbers(files.files.size());
    std::iota(numbers.begin(), numbers.end(), 0U);
    return OrderedByText(std::move(numbers), [&](uint32_t i) { return std::string(TitleOf(files, i)); });
}

void CountMonths(Snapshot* snapshot) {
    const FilesOfKind& pictures = snapshot->Of(FileKind::kPicture);
    for (const uint32_t picture : snapshot->pictures_by_newest) {
        const uint32_t month = MonthOf(pictures.files[picture].moment);
        if (snapshot->months.empty() || snapshot->months.back().value != month)
            snapshot->months.push_back(
                {.value = month, .count = 0, .records = 0, .cover = picture, .has_cover = true});
        ++snapshot->months.back().count;
    }
}

}  // namespace

void SnapshotGroup(Snapshot* snapshot) {
    MakeRecords(snapshot);
    RankTexts(snapshot);
    OrderRecords(snapshot);
    snapshot->artists = NamedBy(*snapshot, [](const Group& group) { return group.artist; });
    snapshot->genres = NamedBy(*snapshot, [](const Group& group) { return group.genre; });
    snapshot->years = NamedBy(*snapshot, [](const Group& group) { return group.year; });
    OrderNamed(*snapshot, &snapshot->artists);
    OrderNamed(*snapshot, &snapshot->genres);
    std::reverse(snapshot->years.begin(), snapshot->years.end());
    const FilesOfKind& films = snapshot->Of(FileKind::kFilm);
    snapshot->films_by_title = FilmsOf(films, FilesByTitle(films));
    snapshot->films_by_newest = FilmsOf(films, FilesByNewest(films));
    snapshot->playlists_by_title = FilesByTitle(snapshot->Of(FileKind::kPlaylist));
    snapshot->pictures_by_newest = FilesByNewest(snapshot->Of(FileKind::kPicture));
    CountMonths(snapshot);
}

}  // namespace koli::serve
