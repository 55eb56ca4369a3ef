// The socket on which the server is asked.
#pragma once

#include <string>

#include "base/unique_fd.h"

namespace koli::serve {

/// Listens on "127.0.0.1:8080", "[::1]:8080" or "localhost:8080"; port 0 is a free one.  An invalid
/// descriptor, and why in `error`, when it cannot.
UniqueFd ListenOn(const std::string& address, std::string* error);

/// The listening socket that the service manager has handed over (LISTEN_PID, LISTEN_FDS), once.  An invalid
/// descriptor when there is none; when there is something else, also why in `error`.
UniqueFd TakeListener(std::string* error);

/// Whether none but this machine's own programs reach it.
bool IsLoopback(int listener);

/// The address to type into a browser: "http://127.0.0.1:8080/"; the machine's name where it listens on all
/// addresses.
std::string BrowserAddress(int listener);

}  // namespace koli::serve
