#include "tools/serve/library/matches.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <utility>

namespace koli::serve {
namespace {

constexpr size_t kWordsMax = 16;  // of a search; what is behind them is not looked for

/// Files and the like by how well they match.
class Ranked {
  public:
    static constexpr int kBegins = 0, kWordBegins = 1, kAnywhere = 2;

    void Add(int rank, uint32_t number) { ranks_[static_cast<size_t>(rank)].push_back(number); }
    Numbers Take() {
        Numbers all = std::move(ranks_[0]);
        for (const size_t rank : {1, 2})
            all.insert(all.end(), ranks_[rank].begin(), ranks_[rank].end());
        return all;
    }

  private:
    std::array<Numbers, 3> ranks_;
};

std::vector<std::string> FirstWords(std::vector<std::string> words) {
    if (words.size() > kWordsMax) words.resize(kWordsMax);
    return words;
}

/// Calls `found` with the number of each entry that has the word, of `count` with ascending places.  All of
/// them are gone through as one text.
template <typename PlaceOf, typename Found>
void ForEachWith(const TextPool& pool, const std::string& word, uint32_t count, PlaceOf place_of,
                 Found found) {
    uint32_t entry = 0;
    for (uint32_t at = 0; entry < count; ++entry) {
        at = pool.Find(word, at);
        if (at == TextPool::kNone) break;
        while (entry + 1 < count && place_of(entry + 1) <= at)
            ++entry;
        found(entry);
        if (entry + 1 < count) at = place_of(entry + 1);
    }
}

/// A word begins behind anything in ASCII that is neither letter nor digit.
bool IsWordEnd(char c) {
    return (c & 0x80) == 0 && isalnum(static_cast<unsigned char>(c)) == 0;
}

}  // namespace

Matches::Matches(const Snapshot& snapshot, std::vector<std::string> words)
    : snapshot_(snapshot),
      words_(FirstWords(std::move(words))),
      all_(static_cast<Bits>((1U << words_.size()) - 1)) {
    for (size_t word = 1; word < words_.size(); ++word)
        if (words_[word].size() > words_[longest_].size()) longest_ = word;
    const Texts& texts = snapshot_.texts;
    texts_.resize(texts.places.size());
    for (size_t word = 0; word < words_.size(); ++word)
        ForEachWith(
            texts.pool, words_[word], static_cast<uint32_t>(texts_.size()),
            [&texts](uint32_t text) { return texts.places[text]; },
            [this, word](uint32_t text) { texts_[text] = static_cast<Bits>(texts_[text] | 1U << word); });
}

Matches::Bits Matches::In(std::string_view text, Bits wanted) const {
    Bits found = 0;
    for (size_t word = 0; word < words_.size(); ++word)
        if ((wanted >> word & 1) != 0 &&
            memmem(text.data(), text.size(), words_[word].data(), words_[word].size()) != nullptr)
            found = static_cast<Bits>(found | 1U << word);
    return found;
}

int Matches::RankOf(std::string_view text) const {
    const std::string& first = words_.front();
    if (text.starts_with(first)) return Ranked::kBegins;
    for (size_t at = 1; (at = text.find(first, at)) != std::string_view::npos; ++at)
        if (IsWordEnd(text[at - 1])) return Ranked::kWordBegins;
    return Ranked::kAnywhere;
}

/// The words that stand in what the files of a group have in common.
std::vector<Matches::Bits> Matches::OfGroups(const FilesOfKind& files) const {
    std::vector<Bits> found(files.groups.size());
    for (size_t i = 0; i < found.size(); ++i) {
        const Group& group = files.groups[i];
        for (const uint32_t text : {group.artist, group.album, group.genre, group.composer, group.comment})
            found[i] = static_cast<Bits>(found[i] | texts_[text]);
    }
    return found;
}

/// By file: whether it has the word.
std::vector<bool> Matches::WithWord(const FilesOfKind& files, const std::vector<Bits>& groups,
                                    size_t word) const {
    std::vector<bool> has(files.files.size());
    for (size_t group = 0; group < groups.size(); ++group)
        if ((groups[group] >> word & 1) != 0)
            for (uint32_t file = files.First(group); file < files.Behind(group); ++file)
                has[file] = true;
    ForEachWith(
        files.names, words_[word], static_cast<uint32_t>(has.size()),
        [&files](uint32_t file) { return files.files[file].name; },
        [&has](uint32_t file) { has[file] = true; });
    return has;
}

Numbers Matches::Files(FileKind kind) const {
    const FilesOfKind& files = snapshot_.Of(kind);
    const std::vector<Bits> groups = OfGroups(files);
    const std::vector<bool> has = WithWord(files, groups, longest_);
    const auto others = static_cast<Bits>(all_ & ~(1U << longest_));
    Ranked ranked;
    for (uint32_t file = 0; file < has.size(); ++file) {
        if (!has[file]) continue;
        const File& row = files.files[file];
        const auto missing = static_cast<Bits>(others & ~groups[row.group]);
        if (missing != 0 && In(files.names.Entry(row.name), missing) != missing) continue;
        ranked.Add(RankOf(TitleOf(files, file)), file);
    }
    return ranked.Take();
}

Numbers Matches::Records() const {
    Ranked ranked;
    for (const uint32_t number : snapshot_.by_title) {
        const Record& record = snapshot_.records[number];
        if ((texts_[record.title] | texts_[record.artist]) == all_)
            ranked.Add(RankOf(snapshot_.texts.Folded(record.title)), number);
    }
    return ranked.Take();
}

Numbers Matches::Artists() const {
    Ranked ranked;
    for (uint32_t number = 0; number < snapshot_.artists.size(); ++number) {
        const uint32_t text = snapshot_.artists[number].value;
        if (texts_[text] == all_) ranked.Add(RankOf(snapshot_.texts.Folded(text)), number);
    }
    return ranked.Take();
}

Numbers Matches::PhotoAlbums() const {
    Ranked ranked;
    for (uint32_t number = 0; number < snapshot_.photo_albums.size(); ++number) {
        const std::string_view entry = snapshot_.album_texts.Entry(snapshot_.photo_albums[number].name);
        if (In(entry, all_) != all_) continue;
        const std::string_view name = entry.substr(0, entry.find('\n'));
        ranked.Add(RankOf(name.substr(name.rfind('/') + 1)), number);
    }
    return ranked.Take();
}

}  // namespace koli::serve
