// What of a snapshot holds the words that are searched for.
#pragma once

#include <string>
#include <vector>

#include "tools/serve/library/snapshot.h"

namespace koli::serve {

/// Words are folded and not empty (ctl::SearchedWords).  The best come first: what begins with the first
/// word, then where a word does, then where it stands anywhere; those that are equal in their order.
class Matches {
  public:
    Matches(const Snapshot& snapshot, std::vector<std::string> words);

    Numbers Files(FileKind kind) const;
    Numbers Records() const;      ///< albums, by title and artist
    Numbers Artists() const;      ///< indexes of Snapshot::artists
    Numbers PhotoAlbums() const;  ///< indexes of Snapshot::photo_albums

  private:
    using Bits = uint16_t;  // of words
    Bits In(std::string_view text, Bits wanted) const;
    int RankOf(std::string_view text) const;
    std::vector<Bits> OfGroups(const FilesOfKind& files) const;
    std::vector<bool> WithWord(const FilesOfKind& files, const std::vector<Bits>& groups, size_t word) const;

    const Snapshot& snapshot_;
    const std::vector<std::string> words_;
    const Bits all_;
    size_t longest_ = 0;       // word
    std::vector<Bits> texts_;  // by text: the words in it
};

}  // namespace koli::serve
