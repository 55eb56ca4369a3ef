// Values as people read them.
#pragma once

#include <cstdint>
#include <string>

namespace koli::serve {

/// "12,345"
std::string Grouped(int64_t number);
/// "1 song", "12,345 songs"; the plural of a noun is itself and "s".
std::string GroupedCount(int64_t number, const std::string& noun);
/// "3:05", "1:02:03"; "" for none.
std::string PlayingTime(double seconds);

}  // namespace koli::serve
