// The login: a token for a cookie, which stays valid over restarts until it is given back.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "tools/serve/http/exchange.h"

namespace koli::serve {

/// What the page with the form has to say.
struct LoginView {
    enum Why { kAsked, kWrong, kTooMany } why = kAsked;
    std::string next;  // the address to go on to: the form's field "next"; the token is its field "token"
};

using Clock = std::chrono::steady_clock;

class Login {
  public:
    using Page = std::function<Reply(const LoginView&)>;

    /// `token`: "" when nobody has to log in.  The cookies' secrets are kept in `sessions_file`, as far as it
    /// can be read and written.  `cookie`: the cookie's name (ports share theirs).
    Login(std::string token, std::string sessions_file, std::string cookie, Page page);

    /// The reply of /login, of /logout, and to who must log in first; nothing when the request goes on.
    std::optional<Reply> Answer(const Request& request, Clock::time_point now);

  private:
    bool IsIn(const Request& request) const;
    Reply Enter(const Request& request, Clock::time_point now);
    Reply Leave(const Request& request);
    Reply Ask(int status, LoginView view) const;
    std::string Cookie(const std::string& secret, const char* age) const;
    void Save() const;

    const std::string token_;
    const std::string sessions_file_;
    const std::string cookie_;
    const Page page_;
    std::mutex mutex_;
    std::vector<std::string> sessions_;       // the oldest first
    std::deque<Clock::time_point> failures_;  // of the last minute
};

}  // namespace koli::serve
