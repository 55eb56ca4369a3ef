// Many texts in little memory, to be searched.
//
// A text is held as it is searched: folded (base/text/fold.h).  Beside each byte one bit tells whether the
// letter that begins there was a capital: for most texts that is enough to give them back as they were, and
// the others are held a second time.
//
// Texts lie in blocks that end where a text says so, by its hash: so a pool that is filled anew has, but
// where something has changed, the blocks of the one before it, and shares them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace koli::serve {

class TextPool {
  public:
    static constexpr uint32_t kNone = UINT32_MAX;

    /// Has the pool, which is still empty, share what it will have in common with an earlier one.
    void ShareWith(const TextPool& earlier);

    /// Adds an entry: a text that can be given back, and others that are only searched, already folded.  What
    /// is longer than an entry may be is searched in part.  Returns the entry's place; places ascend.
    uint32_t Add(std::string_view text, std::string_view others = {});

    /// Nothing more will be added.
    void Finish();

    /// The entry's text as it was added.
    std::string Text(uint32_t place) const;
    /// The entry as it is searched: the folded text and the others, each behind a line break.  Until the next
    /// Add or Finish.
    std::string_view Entry(uint32_t place) const;
    /// The folded text alone.
    std::string_view Folded(uint32_t place) const;

    /// Where `word` (folded, not empty, without a line break) is found next at or behind `from`; kNone when
    /// nowhere.
    uint32_t Find(std::string_view word, uint32_t from) const;

  private:
    static constexpr size_t kBlockSize = 65536;
    /// A text that is held a second time: where its entry begins, and where it does in `spelled`.
    struct Original {
        uint32_t at, begin;
        bool operator==(const Original&) const = default;
    };
    struct Block {
        std::string text;               // entries, each with a NUL behind it
        std::vector<uint8_t> capitals;  // a bit for each byte
        std::vector<Original> originals;
        std::string spelled;  // each text with a NUL behind it
        bool operator==(const Block&) const = default;
    };

    const Block& BlockOf(uint32_t place) const;
    void CloseBlock();
    void AddOriginal(std::string_view text, size_t at);
    bool SetCapitals(std::string_view text, std::string_view folded, size_t at);

    std::vector<std::shared_ptr<const Block>> blocks_;
    Block open_;                                                        // the one behind them
    std::unordered_map<size_t, std::shared_ptr<const Block>> earlier_;  // by the hash of its text
};

/// `text` folded, on one line: what would end a line or an entry is a blank.
void FoldLineTo(std::string_view text, std::string* folded);

}  // namespace koli::serve
