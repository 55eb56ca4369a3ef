// Texts as people compare them: without regard to case, and to how a letter is put together.
#pragma once

#include <string>
#include <string_view>

namespace koli {

/// The text as it is compared: case folded, composed, and each character in its plain form (NFKC_Casefold of
/// Unicode): "GRÜSSE" and "Grüße" give the same bytes, whether "ü" is one character or two, and so do
/// full-width and plain letters.  What is no UTF-8 is kept as it is, byte by byte.  Of any length, in time
/// that follows it; a run of more than some 250 bytes without an ASCII character is folded in parts.
std::string Folded(std::string_view text);

/// The same into `*folded`, whose room is used again: for whoever folds many.
void FoldTo(std::string_view text, std::string* folded);

/// The character, a small letter, as a capital; itself where it has none, and what is no UTF-8.
std::string Capital(std::string_view character);

/// Bytes whose order is the one in which texts are listed: folded, and a letter with a mark stands by the one
/// without.
void SortKeyTo(std::string_view text, std::string* key);

}  // namespace koli
