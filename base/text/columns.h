// How much room texts take on a terminal.
#pragma once

#include <cstddef>
#include <string_view>

namespace koli {

/// The first character of `text`, which is not empty: its length in bytes.  `*columns` is how many cells of a
/// terminal it takes (Unicode's East Asian width): 2, 1, or 0 for what joins the character before it.  What
/// is no UTF-8 is one byte in one cell.
size_t CharacterColumns(std::string_view text, size_t* columns);

}  // namespace koli
