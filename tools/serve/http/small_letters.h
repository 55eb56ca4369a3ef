// Names in HTTP: capitals of ASCII say nothing in them.
#pragma once

#include <algorithm>
#include <string>

namespace koli::serve {

/// `text` with small letters of ASCII for its capitals, whatever the language is set to.
inline std::string SmallLetters(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return text;
}

}  // namespace koli::serve
