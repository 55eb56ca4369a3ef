// What a file is for a browser, by its name.
#pragma once

#include <string_view>

namespace koli::serve {

struct MediaType {
    const char* type;    // of the Content-Type
    bool plays = false;  // browsers play or show it
};

/// Bytes of no known kind, for a name that tells nothing.
MediaType TypeOf(std::string_view path);

}  // namespace koli::serve
