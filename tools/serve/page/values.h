// Values as people read them.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>

namespace koli::serve {

/// "12,345"
std::string Grouped(int64_t number);
/// "1 song", "12,345 songs"; the plural of a noun is itself and "s".
std::string GroupedCount(int64_t number, const std::string& noun);
/// "3:05", "1:02:03"; "" for none.
std::string PlayingTime(double seconds);
/// "4000 x 3000", with the sign of multiplication; "" when it is not known.
std::string PixelsText(int64_t width, int64_t height);
/// A sentence, or a part of one, that begins with a capital.
std::string Begun(std::string text);
/// Facts in one line, with a dot between each two; "" is left out.
std::string Joined(std::initializer_list<std::string> facts);

}  // namespace koli::serve
