#include "tools/serve/http/connection_ages.h"

#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <tuple>

namespace koli::serve {

using Clock = std::chrono::steady_clock;

ConnectionAges::ConnectionAges(const ConnectionLimits& limits) : limits_(limits), thread_([this] { Run(); }) {
    pthread_setname_np(thread_.native_handle(), "serve-ages");
}

ConnectionAges::~ConnectionAges() {
    {
        const std::lock_guard lock(mutex_);
        is_stopping_ = true;
    }
    stopped_.notify_all();
    thread_.join();
}

ConnectionAges::Connection* ConnectionAges::Open(int fd) {
    const std::lock_guard lock(mutex_);
    connections_.push_back({fd, Connection::kWaiting, Clock::now(), limits_.request});
    Connection* const connection = &connections_.back();
    const auto open = std::count_if(connections_.begin(), connections_.end(),
                                    [](const Connection& one) { return one.state != Connection::kEnded; });
    if (static_cast<size_t>(open) > limits_.connections) GiveWay();
    return connection;
}

/// Of those that wait for a request the one that has waited longest; where all others are being answered, the
/// one that has been longest at that, lest many who take nothing of their answers keep everybody out.  One
/// that has been shut down is not closed yet, and gives way no second time.
void ConnectionAges::GiveWay() {
    Connection* oldest = nullptr;
    const auto comes_first = [](const Connection& one, const Connection& other) {
        return std::tuple(one.state, one.since) < std::tuple(other.state, other.since);
    };
    for (Connection& connection : connections_) {
        const bool is_new = &connection == &connections_.back();
        if (!is_new && connection.state != Connection::kEnded &&
            (oldest == nullptr || comes_first(connection, *oldest)))
            oldest = &connection;
    }
    if (oldest != nullptr) ShutDown(*oldest);
}

void ConnectionAges::ShutDown(Connection& connection) {
    connection.state = Connection::kEnded;
    shutdown(connection.fd, SHUT_RDWR);
}

void ConnectionAges::Close(Connection* connection) {
    const std::lock_guard lock(mutex_);
    connections_.remove_if([connection](const Connection& one) { return &one == connection; });
}

void ConnectionAges::RequestIsWhole(Connection* connection) {
    const std::lock_guard lock(mutex_);
    if (connection->state == Connection::kEnded) return;
    connection->state = Connection::kAnswered;
    connection->since = Clock::now();
}

void ConnectionAges::AnswerHasEnded(Connection* connection) {
    const std::lock_guard lock(mutex_);
    if (connection->state == Connection::kEnded) return;
    connection->state = Connection::kWaiting;
    connection->since = Clock::now();
    connection->patience = limits_.further;
}

void ConnectionAges::Run() {
    std::unique_lock lock(mutex_);
    while (!stopped_.wait_for(lock, limits_.interval, [this] { return is_stopping_; })) {
        const Clock::time_point now = Clock::now();
        for (Connection& connection : connections_) {
            if (connection.state == Connection::kWaiting && now - connection.since >= connection.patience)
                ShutDown(connection);
        }
    }
}

}  // namespace koli::serve
