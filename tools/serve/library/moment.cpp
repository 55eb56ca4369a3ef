#include "tools/serve/library/moment.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace koli::serve {
namespace {

constexpr int kFirstYear = 1900, kLastYear = 2155;
enum Part : size_t { kYear, kMonth, kDay, kHour, kMinute, kSecond, kParts };

Moment Packed(const int (&part)[kParts]) {
    const bool is_date = part[kYear] >= kFirstYear && part[kYear] <= kLastYear && part[kMonth] >= 1 &&
                         part[kMonth] <= 12 && part[kDay] >= 1 && part[kDay] <= 31;
    if (!is_date || part[kHour] > 24 || part[kMinute] > 60 || part[kSecond] > 60) return 0;
    // 8 bits, 4, 5, 5, 6 and 4
    auto moment = static_cast<Moment>(part[kYear] - kFirstYear);
    moment = moment << 4 | static_cast<Moment>(part[kMonth]);
    moment = moment << 5 | static_cast<Moment>(part[kDay]);
    moment = moment << 5 | static_cast<Moment>(part[kHour]);
    moment = moment << 6 | static_cast<Moment>(part[kMinute]);
    return moment << 4 | static_cast<Moment>(part[kSecond] / 4);
}

/// 1 to 12, or 0.
int MonthNamed(const char* name) {
    constexpr const char kNames[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const char* const found = strlen(name) == 3 ? strstr(kNames, name) : nullptr;
    return found != nullptr && (found - kNames) % 3 == 0 ? static_cast<int>(found - kNames) / 3 + 1 : 0;
}

}  // namespace

Moment MomentOf(std::string_view given) {
    const std::string text(given.substr(0, 64));
    int part[kParts] = {};
    char month[4] = {};
    if (sscanf(text.c_str(), "%*3s %3s %2d %2d:%2d:%2d %4d", month, &part[kDay], &part[kHour], &part[kMinute],
               &part[kSecond], &part[kYear]) == 6) {
        part[kMonth] = MonthNamed(month);
        return Packed(part);
    }
    const int count = sscanf(text.c_str(), "%4d%*1[-:/.]%2d%*1[-:/.]%2d%*1[ T]%2d:%2d:%2d", &part[kYear],
                             &part[kMonth], &part[kDay], &part[kHour], &part[kMinute], &part[kSecond]);
    for (const int number : part)
        if (number < 0) return 0;
    return count >= 3 ? Packed(part) : 0;
}

std::string MonthText(uint32_t month) {
    if (month == 0) return "";
    char text[16];
    snprintf(text, sizeof text, "%04u-%02u", kFirstYear + (month >> 4), month & 15);
    return text;
}

uint32_t MonthOf(std::string_view text) {
    const uint32_t month = text.size() == 7 ? MonthOf(MomentOf(std::string(text) + "-01")) : 0;
    return MonthText(month) == text ? month : 0;
}

}  // namespace koli::serve
