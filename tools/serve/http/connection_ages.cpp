#include "tools/serve/http/connection_ages.h"

#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>

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
    connections_.push_back({fd, true, Clock::now(), limits_.request});
    Connection* const connection = &connections_.back();
    if (connections_.size() > limits_.connections) GiveWay();
    return connection;
}

/// The new one is the last of the list, and so the last that is taken.  One that has been shut down is not
/// closed yet, and gives way no second time.
void ConnectionAges::GiveWay() {
    Connection* oldest = nullptr;
    for (Connection& connection : connections_)
        if (connection.is_waiting && (oldest == nullptr || connection.since < oldest->since))
            oldest = &connection;
    if (oldest == nullptr) return;
    oldest->is_waiting = false;
    shutdown(oldest->fd, SHUT_RDWR);
}

void ConnectionAges::Close(Connection* connection) {
    const std::lock_guard lock(mutex_);
    connections_.remove_if([connection](const Connection& one) { return &one == connection; });
}

void ConnectionAges::RequestIsWhole(Connection* connection) {
    const std::lock_guard lock(mutex_);
    connection->is_waiting = false;
}

void ConnectionAges::AnswerHasEnded(Connection* connection) {
    const std::lock_guard lock(mutex_);
    connection->is_waiting = true;
    connection->since = Clock::now();
    connection->patience = limits_.further;
}

void ConnectionAges::Run() {
    std::unique_lock lock(mutex_);
    while (!stopped_.wait_for(lock, limits_.interval, [this] { return is_stopping_; })) {
        const Clock::time_point now = Clock::now();
        for (Connection& connection : connections_) {
            if (!connection.is_waiting || now - connection.since < connection.patience) continue;
            connection.is_waiting = false;
            shutdown(connection.fd, SHUT_RDWR);
        }
    }
}

}  // namespace koli::serve
