#include "base/parse_number.h"

#include <algorithm>
#include <cstdlib>

namespace koli {

int32_t ParseInt32(const char* text, const char** end) {
    char* stop = nullptr;
    const long long value = strtoll(text, &stop, 10);
    if (end != nullptr) *end = stop;
    return static_cast<int32_t>(std::clamp<long long>(value, INT32_MIN, INT32_MAX));
}

}  // namespace koli
