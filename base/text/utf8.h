// Which bytes are UTF-8.
#pragma once

#include <cstddef>
#include <string_view>

namespace koli {

/// Length of the valid UTF-8 sequence at the beginning of `text`, 0 when there is none.
size_t Utf8Length(std::string_view text);

}  // namespace koli
