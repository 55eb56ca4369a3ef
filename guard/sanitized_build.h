// Whether this build runs under AddressSanitizer, which reserves terabytes of address space and reports to
// standard error.
#pragma once

namespace koli {

#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kSanitizedBuild = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool kSanitizedBuild = true;
#else
inline constexpr bool kSanitizedBuild = false;
#endif
#else
inline constexpr bool kSanitizedBuild = false;
#endif

}  // namespace koli
