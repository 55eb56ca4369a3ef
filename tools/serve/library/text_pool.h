// Many texts in little memory, to be searched.
//
// A text is held as it is searched: folded (base/text/fold.h).  Beside each byte one bit tells whether the
// letter was a capital: for most texts that is enough to give them back as they were, and the others are held
// a second time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/serve/library/blocks.h"

namespace koli::serve {

class TextPool {
  public:
    static constexpr uint32_t kNone = UINT32_MAX;

    /// Adds an entry: a text that can be given back, and others that are only searched, already folded.  What
    /// is longer than an entry may be is searched in part.  Returns the entry's place; places ascend.
    uint32_t Add(std::string_view text, std::string_view others = {});

    /// The entry's text as it was added.
    std::string Text(uint32_t place) const;
    /// The entry as it is searched: the folded text and the others, each behind a line break.
    std::string_view Entry(uint32_t place) const;
    /// The folded text alone.
    std::string_view Folded(uint32_t place) const;

    /// Where `word` (folded, not empty, without a line break) is found next at or behind `from`; kNone when
    /// nowhere.
    uint32_t Find(std::string_view word, uint32_t from) const;

    size_t bytes() const;  ///< of memory

  private:
    static constexpr size_t kBlockSize = 65536;
    struct Block {
        char text[kBlockSize] = {};             // entries, each with a NUL behind it
        uint8_t capitals[kBlockSize / 8] = {};  // a bit for each byte
    };
    /// A text that is held a second time: which one it is, and where it begins in `spelled_`.
    struct Original {
        uint32_t place, begin;
    };
    void AddOriginal(std::string_view text, uint32_t place);
    bool SetCapitals(std::string_view text, std::string_view folded, uint32_t place);

    std::vector<std::unique_ptr<Block>> blocks_;
    size_t used_ = kBlockSize;    // of the last block
    Blocks<Original> originals_;  // by place
    Blocks<char> spelled_;        // each text with a NUL behind it
};

/// `text` folded, on one line: what would end a line or an entry is a blank.
void FoldLineTo(std::string_view text, std::string* folded);

}  // namespace koli::serve
