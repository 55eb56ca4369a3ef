#include "tools/serve/library/moment.h"

#include <cstdio>

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
int MonthNamed(std::string_view name) {
    constexpr std::string_view kNames = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const size_t found = name.size() == 3 ? kNames.find(name) : std::string_view::npos;
    return found != std::string_view::npos && found % 3 == 0 ? static_cast<int>(found / 3) + 1 : 0;
}

/// The whole numbers in the text, at most `kParts`; one that is too large for a date stays so.
size_t NumbersIn(std::string_view text, int (&numbers)[kParts]) {
    constexpr int kTooLarge = 1'000'000;
    size_t count = 0;
    bool is_within = false;
    for (const char c : text) {
        const bool is_digit = c >= '0' && c <= '9';
        if (is_digit && !is_within) {
            if (count == kParts) break;
            numbers[count++] = 0;
        }
        is_within = is_digit;
        if (is_digit && numbers[count - 1] < kTooLarge)
            numbers[count - 1] = numbers[count - 1] * 10 + (c - '0');
    }
    return count;
}

}  // namespace

Moment MomentOf(std::string_view text) {
    constexpr size_t kMonthAt = 4, kMonthLength = 3;  // "Fri May 31 10:11:12 2024"
    int number[kParts] = {};
    if (text.empty()) return 0;
    if (text.front() >= '0' && text.front() <= '9')
        return NumbersIn(text, number) > kDay ? Packed(number) : 0;
    if (text.size() < kMonthAt + kMonthLength || NumbersIn(text.substr(kMonthAt), number) < kParts - 1)
        return 0;
    return Packed({number[4], MonthNamed(text.substr(kMonthAt, kMonthLength)), number[0], number[1],
                   number[2], number[3]});
}

std::string MomentText(std::string_view text) {
    int part[kParts] = {};
    if (MomentOf(text) == 0 || text.front() < '0' || text.front() > '9') return "";
    NumbersIn(text, part);
    char moment[96];
    snprintf(moment, sizeof moment, "%04d-%02d-%02d %02d:%02d:%02d", part[kYear], part[kMonth], part[kDay],
             part[kHour], part[kMinute], part[kSecond]);
    return moment;
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
