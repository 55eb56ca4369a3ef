// Where the server keeps what is its own.
#pragma once

#include <string>

namespace koli::serve {

/// The folder of the token: the service's (STATE_DIRECTORY), or the user's.  "" when there is neither.
std::string StateFolder();

/// The folder of small pictures: the service's (CACHE_DIRECTORY), or the user's.  "" when there is neither.
std::string CacheFolder();

}  // namespace koli::serve
