#include "tools/serve/http/server.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <utility>

#include "tools/serve/http/gate.h"
#include "tools/serve/http/open_exchange.h"
#include "tools/serve/http/request_reader.h"
#include "tools/serve/http/response.h"

namespace koli::serve {

namespace {

using Held = std::shared_ptr<Exchange>;

/// What is known of a connection, for as long as it lasts.
struct Peer {
    ConnectionAges::Connection* age;
    std::string address;  // of the request that is coming in
};

Peer* PeerOf(MHD_Connection* connection) {
    const auto* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
    return info == nullptr ? nullptr : static_cast<Peer*>(info->socket_context);
}

int SocketOf(MHD_Connection* connection) {
    return MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
}

constexpr size_t kMemory = 16384;   // bytes for the heads of a request and its answer, of one connection
constexpr rlim_t kSlack = 64;       // connections that have to give way and are not closed yet
constexpr rlim_t kOtherFiles = 64;  // databases and the like

/// As many connections as there may be open files for, each with the one that it is sent.
size_t ConnectionsFor(size_t wanted) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return wanted;
    const rlim_t others = kOtherFiles + 2 * kSlack;
    const rlim_t possible = limit.rlim_cur > others ? (limit.rlim_cur - others) / 2 : 1;
    return std::min<size_t>(wanted, possible);
}

/// A part of a form's field.
MHD_Result AddField(void* to, MHD_ValueKind, const char* key, const char*, const char*, const char*,
                    const char* data, uint64_t offset, size_t size) noexcept {
    auto* const fields = static_cast<Values*>(to);
    if (key == nullptr || (offset > 0 && fields->list().empty())) return MHD_NO;
    try {
        const std::string part(data == nullptr ? "" : data, data == nullptr ? 0 : size);
        if (offset == 0)
            fields->Add(key, part);
        else
            fields->AppendToLast(part);
        return MHD_YES;
    } catch (...) {
        return MHD_NO;
    }
}

}  // namespace

/// What the library calls, and what that needs.
class Server::State {
  public:
    State(ServerSettings settings, ServerPages pages, Handler handler, size_t connections);
    ~State();
    bool Start(std::string* error);

  private:
    static void* OnAddress(void* self, const char* address, MHD_Connection* connection) noexcept;
    static MHD_Result OnRequest(void* self, MHD_Connection* connection, const char* path, const char* method,
                                const char* version, const char* body, size_t* size, void** held) noexcept;
    static void OnConnection(void* self, MHD_Connection* connection, void** kept,
                             MHD_ConnectionNotificationCode code) noexcept;
    static void OnEnd(void* self, MHD_Connection* connection, void** held,
                      MHD_RequestTerminationCode code) noexcept;
    MHD_Result Begin(const Held& exchange, const char* path, const char* method, const char* version);
    MHD_Result Continue(const Held& exchange, const char* body, size_t* size);
    void HandOver(const Held& exchange);
    MHD_Result Send(const Held& exchange, Reply reply);
    Reply Page(int status, const char* text) const;

    ServerSettings settings_;
    const ServerPages pages_;
    const Handler handler_;
    const size_t connections_;
    const Gate gate_;
    Login login_;
    ConnectionAges ages_;
    MHD_Daemon* daemon_ = nullptr;
    std::mutex mutex_;
    std::set<Held> waiting_;  // handed over and not over
    bool is_stopping_ = false;
};

Server::State::State(ServerSettings settings, ServerPages pages, Handler handler, size_t connections)
    : settings_(std::move(settings)),
      pages_(std::move(pages)),
      handler_(std::move(handler)),
      connections_(connections),
      gate_(settings_.names),
      login_(settings_.token, settings_.sessions_file,
             "koliindex_" + std::to_string(LocalEndOf(settings_.listener.get()).port), pages_.login),
      ages_([this] {
          ConnectionLimits limits = settings_.limits;
          limits.connections = connections_;
          return limits;
      }()) {}

bool Server::State::Start(std::string* error) {
    const int listener = dup(settings_.listener.get());  // the library closes its own
    if (listener >= 0) fcntl(listener, F_SETFL, fcntl(listener, F_GETFL) | O_NONBLOCK);
    if (listener >= 0) fcntl(listener, F_SETFD, FD_CLOEXEC);
    // Addresses are decoded by PercentDecoded alone, so that a NUL or a '/' in a name does not get lost.
    const auto leave_encoded = [](void*, MHD_Connection*, char* text) {
        return std::char_traits<char>::length(text);
    };
    const auto limit = static_cast<unsigned>(connections_ + kSlack);
    daemon_ = MHD_start_daemon(
        MHD_USE_EPOLL_INTERNAL_THREAD | MHD_USE_SUSPEND_RESUME, 0, nullptr, nullptr, OnRequest, this,
        MHD_OPTION_LISTEN_SOCKET, listener, MHD_OPTION_THREAD_POOL_SIZE, settings_.threads,
        MHD_OPTION_CONNECTION_LIMIT, limit, MHD_OPTION_CONNECTION_MEMORY_LIMIT, kMemory,
        MHD_OPTION_CONNECTION_TIMEOUT, settings_.stall_seconds, MHD_OPTION_STRICT_FOR_CLIENT, 1,
        MHD_OPTION_UNESCAPE_CALLBACK, +leave_encoded, nullptr, MHD_OPTION_URI_LOG_CALLBACK, OnAddress, this,
        MHD_OPTION_NOTIFY_CONNECTION, OnConnection, this, MHD_OPTION_NOTIFY_COMPLETED, OnEnd, this,
        MHD_OPTION_END);
    if (daemon_ != nullptr) return true;
    if (listener >= 0) close(listener);
    *error = "the server cannot be started: too few files or threads, or too little memory";
    return false;
}

Server::State::~State() {
    std::set<Held> waiting;
    {
        const std::lock_guard lock(mutex_);
        is_stopping_ = true;
        waiting = waiting_;
    }
    // The library does not end while a connection sleeps.
    for (const Held& exchange : waiting)
        exchange->Answer(PlainReply(503, "The server ends."));
    if (daemon_ != nullptr) MHD_stop_daemon(daemon_);
}

Reply Server::State::Page(int status, const char* text) const {
    Reply reply = pages_.error(status, text);
    reply.status = status;
    return reply;
}

void Server::State::OnConnection(void* self, MHD_Connection* connection, void** kept,
                                 MHD_ConnectionNotificationCode code) noexcept {
    ConnectionAges& ages = static_cast<State*>(self)->ages_;
    try {
        if (code == MHD_CONNECTION_NOTIFY_STARTED) {
            *kept = new Peer{ages.Open(SocketOf(connection)), ""};
        } else if (const std::unique_ptr<Peer> peer(static_cast<Peer*>(std::exchange(*kept, nullptr)));
                   peer) {
            ages.Close(peer->age);
        }
    } catch (...) {  // no memory: it stays without bounds of its own, and gets no answer
    }
}

/// Nothing is made for the request before OnRequest: the library ends some without having called that.
void* Server::State::OnAddress(void*, const char* address, MHD_Connection* connection) noexcept {
    try {
        if (Peer* const peer = PeerOf(connection)) peer->address = address;
    } catch (...) {
    }
    return nullptr;
}

/// Called for the head of a request, for each piece of its body, for its end, and when its connection has
/// slept.
MHD_Result Server::State::OnRequest(void* self, MHD_Connection* connection, const char* path,
                                    const char* method, const char* version, const char* body, size_t* size,
                                    void** held) noexcept {
    auto* const state = static_cast<State*>(self);
    Peer* const peer = PeerOf(connection);
    if (peer == nullptr) return MHD_NO;
    try {
        if (*held == nullptr)
            *held = new Held(std::make_shared<Exchange>(connection, std::exchange(peer->address, "")));
        const Held& exchange = *static_cast<Held*>(*held);
        if (std::exchange(exchange->is_read, true)) return state->Continue(exchange, body, size);
        return state->Begin(exchange, path, method, version);
    } catch (...) {
        return MHD_NO;
    }
}

/// A refusal is sent before the body has come, and ends the connection.  What the library itself refuses does
/// not come here (400, 413, 414, 431, 505): its answers cannot be replaced, end the connection, too, and hold
/// fixed sentences, nothing of the request.
MHD_Result Server::State::Begin(const Held& exchange, const char* path, const char* method,
                                const char* version) {
    const auto refuse = [&](int status, const char* text) {
        Reply reply = Page(status, text);
        exchange->is_last = true;
        if (status == 405) reply.headers.emplace_back("Allow", MethodsOf(exchange->request));
        return Send(exchange, std::move(reply));
    };
    Request& request = exchange->request;
    if (const int status = ReadRequest(exchange->connection, path, method, version, &request))
        return refuse(status, PhraseOf(status));
    if (const char* const why = gate_.Refusal(request, LocalEndOf(SocketOf(exchange->connection))))
        return refuse(403, why);
    exchange->is_last = !IsPlainHead(exchange->connection, request);
    if (request.method == "POST")
        exchange->form.reset(
            MHD_create_post_processor(exchange->connection, 1024, AddField, &request.fields));
    return MHD_YES;
}

MHD_Result Server::State::Continue(const Held& exchange, const char* body, size_t* size) {
    if (*size > 0) {
        if (exchange->form && MHD_post_process(exchange->form.get(), body, *size) != MHD_YES) {
            exchange->form.reset();
            exchange->request.fields = {};  // what is no form has none
        }
        *size = 0;
        return MHD_YES;
    }
    if (!std::exchange(exchange->is_handed, true)) HandOver(exchange);
    std::optional<Reply> reply;
    {
        const std::lock_guard lock(mutex_);
        if (is_stopping_) exchange->Answer(Page(503, "The server ends."));
        reply = exchange->TakeOrSleep();
        if (!reply) waiting_.insert(exchange);
    }
    return reply ? Send(exchange, std::move(*reply)) : MHD_YES;
}

void Server::State::HandOver(const Held& exchange) {
    exchange->form.reset();  // the last field is complete
    ages_.RequestIsWhole(PeerOf(exchange->connection)->age);
    if (std::optional<Reply> reply = login_.Answer(exchange->request, Clock::now())) {
        exchange->Answer(std::move(*reply));
        return;
    }
    try {
        handler_(exchange->request, Responder(exchange));
    } catch (...) {  // its Responder has answered
    }
}

MHD_Result Server::State::Send(const Held& exchange, Reply reply) {
    int status = 0;
    const auto response_of = [&](Reply made) {
        if (exchange->is_last) made.headers.emplace_back("Connection", "close");
        return ResponseOf(exchange->request, std::move(made), &status);
    };
    Response response = response_of(std::move(reply));
    if (!response) response = response_of(Page(500, "This could not be sent."));
    return response ? MHD_queue_response(exchange->connection, static_cast<unsigned>(status), response.get())
                    : MHD_NO;
}

void Server::State::OnEnd(void* self, MHD_Connection* connection, void** held,
                          MHD_RequestTerminationCode) noexcept {
    auto* const state = static_cast<State*>(self);
    if (const Peer* const peer = PeerOf(connection)) state->ages_.AnswerHasEnded(peer->age);
    if (*held == nullptr) return;
    const std::unique_ptr<Held> exchange(static_cast<Held*>(std::exchange(*held, nullptr)));
    (*exchange)->End();
    const std::lock_guard lock(state->mutex_);
    state->waiting_.erase(*exchange);
}

Server::Server() = default;

Server::~Server() {
    Stop();
}

bool Server::Start(ServerSettings settings, ServerPages pages, Handler handler, std::string* error) {
    const size_t connections = ConnectionsFor(settings.limits.connections);
    state_ = std::make_unique<State>(std::move(settings), std::move(pages), std::move(handler), connections);
    if (state_->Start(error)) return true;
    state_.reset();
    return false;
}

void Server::Stop() {
    state_.reset();
}

}  // namespace koli::serve
