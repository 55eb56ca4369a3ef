// The server: connections and their bounds, around a handler that makes the replies.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "base/unique_fd.h"
#include "tools/serve/http/connection_ages.h"
#include "tools/serve/http/exchange.h"
#include "tools/serve/http/login.h"

namespace koli::serve {

struct ServerSettings {
    UniqueFd listener;                    // a listening socket
    std::vector<std::string> names = {};  // see Gate
    std::string token = {};               // "" = nobody has to log in
    std::string sessions_file = {};       // see Login
    ConnectionLimits limits = {};
    unsigned stall_seconds = 60;  // that a client may take none of its answer
    unsigned threads = 4;         // that call the handler
};

/// What the server itself has to show.
struct ServerPages {
    /// A page for an error status; `text` says more, for people.
    std::function<Reply(int status, const char* text)> error = PlainReply;
    Login::Page login;
};

/// Answers GET and HEAD by the handler, and nothing that Gate or Login holds back.  Beside what the reply
/// says, each has a Content-Security-Policy and its relatives; a file has its validators and ranges.  Whoever
/// uses it ignores SIGPIPE.
class Server {
  public:
    Server();
    ~Server();  ///< Stop
    Server(const Server&) = delete;

    /// False and why in `error` when it cannot.  There are fewer connections at a time than the settings
    /// allow where the process may not open as many files as they take: two for each.
    bool Start(ServerSettings settings, ServerPages pages, Handler handler, std::string* error);
    /// Ends all connections and threads; whoever still has a Responder may keep it.
    void Stop();

  private:
    class State;
    std::unique_ptr<State> state_;
};

}  // namespace koli::serve
