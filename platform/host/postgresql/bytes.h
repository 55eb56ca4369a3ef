// Bytes on a server whose texts are UTF-8.
//
// Names are bytes, and the server takes none that are no UTF-8.  So each byte b that belongs to no character
// is kept as the character U+F780 + (b - 0x80); what really holds such a character has it byte by byte.  The
// bytes 0 and 1 are kept as 1 1 and 1 2, which leaves them the least ones: keys that end with one begin a
// range.  A text that holds none of these is kept as it is.
#pragma once

#include <string>
#include <string_view>

namespace koli::host {

/// The text as the server keeps it; `*scratch` holds it when it is another one.
std::string_view ServerText(std::string_view bytes, std::string* scratch);

/// The bytes that a text of the server stands for; the same holds for `*scratch`.
std::string_view OwnBytes(std::string_view text, std::string* scratch);

}  // namespace koli::host
