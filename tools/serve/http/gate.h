// Who may ask at all: a browser that was led here by another site's page may not.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/serve/http/exchange.h"

namespace koli::serve {

/// The server's end of a connection.
struct LocalEnd {
    std::string address;  // "127.0.0.1", "::1"; "" for one that has none
    bool is_loopback = false;
    int port = 0;
};

/// The end of the connection, or of the listening socket, `fd`.
LocalEnd LocalEndOf(int fd);

class Gate {
  public:
    /// `names`: further names of this server, each with a port ("nas.home:8080") or without one (any).
    explicit Gate(const std::vector<std::string>& names);

    /// Why the request is refused, one line for people; null when it is not.
    const char* Refusal(const Request& request, const LocalEnd& end) const;

  private:
    bool IsOurs(std::string_view host, const LocalEnd& end) const;

    std::vector<std::string> names_;     // in small letters
    std::vector<std::string> machines_;  // this machine's own
};

}  // namespace koli::serve
