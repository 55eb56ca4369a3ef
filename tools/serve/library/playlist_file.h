// What a playlist names.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace koli::serve {

/// An entry: the path or address as the file has it, and what the file calls it ("" = nothing).
struct PlaylistLine {
    std::string path = {};
    std::string title = {};
};

/// The entries of an m3u or wpl file, by what its first bytes look like; at most `max`.
std::vector<PlaylistLine> PlaylistLines(std::string_view bytes, size_t max);

/// The path of the library that an entry of the playlist at `playlist` means; "" for an address on the
/// network and what leads out of the root.
std::string PlaylistTarget(std::string_view playlist, std::string_view entry);

}  // namespace koli::serve
