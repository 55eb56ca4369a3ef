// Where the server keeps what is its own.
#pragma once

#include <string>

namespace koli::serve {

/// The folder of the token: the service's (STATE_DIRECTORY), or the user's.  "" when there is neither.
std::string StateFolder();

}  // namespace koli::serve
