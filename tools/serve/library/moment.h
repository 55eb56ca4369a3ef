// Points in time as the databases' texts tell them, in four bytes: enough to order by.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace koli::serve {

/// 0 = unknown; a later one is greater.  Years 1900 to 2155, to four seconds.
using Moment = uint32_t;

/// Of "2024:05:31 10:11:12" with any marks between the numbers, or of the C library's "Fri May 31 10:11:12
/// 2024"; 0 for anything else.
Moment MomentOf(std::string_view text);

/// "2024-05-31 10:11:12" of the first of these forms; "" for anything else.
std::string MomentText(std::string_view text);

/// What a month's moments have in common; 0 = unknown.
inline uint32_t MonthOf(Moment moment) {
    return moment >> 20;
}
/// "2024-05", "" for 0, and back; 0 for anything else.
std::string MonthText(uint32_t month);
uint32_t MonthOf(std::string_view text);

}  // namespace koli::serve
