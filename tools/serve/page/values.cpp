#include "tools/serve/page/values.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace koli::serve {

std::string Grouped(int64_t number) {
    std::string text = std::to_string(number);
    const size_t first = number < 0 ? 1 : 0;
    for (size_t at = text.size(); at > first + 3;)
        text.insert(at -= 3, 1, ',');
    return text;
}

std::string GroupedCount(int64_t number, const std::string& noun) {
    return Grouped(number) + " " + noun + (number == 1 ? "" : "s");
}

std::string PlayingTime(double seconds) {
    constexpr double kLongest = 1e9;
    if (!(seconds > 0 && seconds < kLongest)) return "";
    const int64_t all = std::max<int64_t>(1, std::llround(seconds));
    char text[32];
    if (all >= 3600)
        snprintf(text, sizeof text, "%d:%02d:%02d", static_cast<int>(all / 3600),
                 static_cast<int>(all / 60 % 60), static_cast<int>(all % 60));
    else
        snprintf(text, sizeof text, "%d:%02d", static_cast<int>(all / 60), static_cast<int>(all % 60));
    return text;
}

}  // namespace koli::serve
