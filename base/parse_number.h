// Decimal numbers in text from tags and other untrusted places.
#pragma once

#include <cstdint>

namespace koli {

/// Reads a decimal number as `strtol` does on a machine whose `long` has 32 bits, on every machine: leading
/// white space and a sign are taken, values beyond 32 bits saturate at INT32_MIN or INT32_MAX.  `*end`, when
/// `end` is not null, receives the first character that does not belong to the number, `text` itself (and 0
/// as the result) when there are no digits.
int32_t ParseInt32(const char* text, const char** end = nullptr);

}  // namespace koli
