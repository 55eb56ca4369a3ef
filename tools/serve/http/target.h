// What an address means: its path and the texts in its query.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace koli::serve {

/// `text` with each %XX replaced by its byte, once.  Nothing when one is cut off or stands for a NUL.
std::optional<std::string> PercentDecoded(std::string_view text);

/// The decoded segments of a path ("/" has none).  Nothing when it does not begin with '/', is longer than a
/// file's path can be, or has a segment that no file's name can be: empty, ".", "..", with a '/' or a NUL in
/// it.
std::optional<std::vector<std::string>> SegmentsOf(std::string_view path);

}  // namespace koli::serve
