// Conversions of floating values that come from a file and need not fit where they go.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace koli {

/// `value` cut to an integer; the nearest end of the range when it does not fit, 0 for not-a-number.
inline uint32_t FloatToUint32(double value) {
    constexpr double kMax = std::numeric_limits<uint32_t>::max();
    if (std::isnan(value) || value <= 0.0) return 0;
    return value >= kMax ? std::numeric_limits<uint32_t>::max() : static_cast<uint32_t>(value);
}

/// `value` rounded to single precision; an infinity of its sign when it does not fit.
inline float DoubleToFloat(double value) {
    if (std::isfinite(value) && std::fabs(value) > std::numeric_limits<float>::max())
        return std::copysign(std::numeric_limits<float>::infinity(), static_cast<float>(value > 0 ? 1 : -1));
    return static_cast<float>(value);
}

}  // namespace koli
