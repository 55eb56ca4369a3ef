// The genre numbers of ID3v1, with the common extension to 148 names; ID3v2 and MP4 use them too.
#pragma once

namespace koli {

inline constexpr int kGenreCount = 148;

/// The name of genre 0 to 147, null for any other number.  Static text.
const char* Id3GenreName(int number);

}  // namespace koli
