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

std::string PixelsText(int64_t width, int64_t height) {
    if (width <= 0 || height <= 0) return "";
    return std::to_string(width) + " \xC3\x97 " + std::to_string(height);
}

std::string Begun(std::string text) {
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') text[0] = static_cast<char>(text[0] - 'a' + 'A');
    return text;
}

std::string Joined(std::initializer_list<std::string> facts) {
    std::string text;
    for (const std::string& fact : facts)
        if (!fact.empty()) text += (text.empty() ? "" : " \xC2\xB7 ") + fact;
    return text;
}

}  // namespace koli::serve
