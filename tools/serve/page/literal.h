// A text that stands in the program.
#pragma once

#include <string_view>

namespace koli::serve {

/// Made of what is known when the program is compiled, so never of what anybody wrote since.
struct Literal {
    consteval Literal(const char* from) : text(from) {}
    std::string_view text;
};

}  // namespace koli::serve
