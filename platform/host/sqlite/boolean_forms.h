// How a truth value may be written in a text that is meant for a boolean column.
#pragma once

#include <string_view>

namespace koli::host {

inline constexpr std::string_view kTrueForms[] = {"t", "true", "y", "yes", "on", "1"};
inline constexpr std::string_view kFalseForms[] = {"f", "false", "n", "no", "off", "0"};

}  // namespace koli::host
