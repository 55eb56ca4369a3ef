// Small files that are read whole: records, and what programs say of themselves in /run.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace koli::ctl {

inline constexpr size_t kSmallFileMax = 65536;  // bytes

/// Reads a whole file of at most `most` bytes; false with errno set, EFBIG for a longer one.
bool SmallFileRead(const std::string& path, std::string* text, size_t most = kSmallFileMax);

/// The lines "KEY=VALUE" of a text, in their order; others are left out.
std::vector<std::pair<std::string, std::string>> KeyValueLines(const std::string& text);

}  // namespace koli::ctl
