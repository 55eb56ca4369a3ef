// How long each connection has been waiting for a whole request, and the end of those that take too long.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <list>
#include <mutex>
#include <thread>

namespace koli::serve {

struct ConnectionLimits {
    size_t connections = 1024;                  // at a time
    std::chrono::milliseconds request{10'000};  // for the first request, from the connection on
    std::chrono::milliseconds further{30'000};  // for another one, from the end of the last answer on
    std::chrono::milliseconds interval{1'000};  // between two looks at them
};

/// Shuts the sockets of connections down; whoever owns them sees their end and closes them.  What comes in
/// byte by byte is no progress: only a whole request is.  All is thread-safe.
class ConnectionAges {
  public:
    struct Connection {
        int fd = -1;
        enum State { kWaiting /* for a request */, kAnswered, kEnded /* shut down */ } state = kWaiting;
        std::chrono::steady_clock::time_point since;  // it is in that state
        std::chrono::milliseconds patience;           // while it waits
    };

    explicit ConnectionAges(const ConnectionLimits& limits);
    ~ConnectionAges();
    ConnectionAges(const ConnectionAges&) = delete;

    /// A new connection.  When there are more than may be, the one that has waited longest gives way, or
    /// where none waits, the one that has been answered longest.  It stays valid until Close.
    Connection* Open(int fd);
    /// To be called before the descriptor is closed.
    void Close(Connection* connection);
    void RequestIsWhole(Connection* connection);
    void AnswerHasEnded(Connection* connection);

  private:
    void Run();
    void GiveWay();
    static void ShutDown(Connection& connection);

    const ConnectionLimits limits_;
    std::mutex mutex_;
    std::condition_variable stopped_;
    bool is_stopping_ = false;
    std::list<Connection> connections_;
    std::thread thread_;  // the last: it uses the others
};

}  // namespace koli::serve
