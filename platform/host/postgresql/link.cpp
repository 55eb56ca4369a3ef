#include "platform/host/postgresql/link.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <iterator>
#include <new>
#include <utility>

#include "platform/host/postgresql/failure.h"
#include "platform/host/postgresql/servers.h"

namespace koli::host {
namespace {

constexpr int64_t kConnectMs = 8'000;
constexpr int64_t kLeastMs = 2'000;     // for each of many servers
constexpr int64_t kSilenceMs = 10'000;  // without a byte from a server that has something to answer
constexpr int64_t kWorkMs = 600'000;    // of one answer
constexpr const char kSilent[] = "the server does not answer";

int64_t NowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

/// Waits until the socket is ready for one of `events`; false at the deadline and on failure.
bool PollUntil(int socket, short events, int64_t deadline) {
    for (;;) {
        pollfd ready{socket, events, 0};
        const int64_t left = std::max<int64_t>(deadline - NowMs(), 0);
        const int count = poll(&ready, 1, static_cast<int>(left));
        if (count >= 0 || errno != EINTR) return count > 0;
    }
}

/// What the library says is wrong.
std::string Reason(const PGconn* connection) {
    const char* const message = PQerrorMessage(connection);
    return message != nullptr && *message != '\0' ? OneLine(message) : "the connection was lost";
}

constexpr const char kAttributes[] = "target_session_attrs";

/// Why a session is none that the settings ask for; null when it is one.  The library would ask the server
/// for rows, and read what it does not find there.
const char* Refusal(const PGconn* connection, const std::string& attributes) {
    const auto is_on = [connection](const char* name) {
        const char* const value = PQparameterStatus(connection, name);
        return value != nullptr && strcmp(value, "on") == 0;
    };
    const bool is_standby = is_on("in_hot_standby");
    const bool is_read_only = is_standby || is_on("default_transaction_read_only");
    if (attributes == "read-write" && is_read_only) return "session is read-only";
    if (attributes == "read-only" && !is_read_only) return "session is not read-only";
    if (attributes == "primary" && is_standby) return "server is in hot standby mode";
    return attributes == "standby" && !is_standby ? "server is not in hot standby mode" : nullptr;
}

/// Other words are the library's to complain about.
bool AreAttributes(const std::string& word) {
    constexpr const char* kKnown[] = {"any",     "read-write", "read-only",
                                      "primary", "standby",    "prefer-standby"};
    return word.empty() || std::ranges::find(kKnown, word) != std::end(kKnown);
}

std::vector<const char*> Pointers(const std::vector<Parameter>& parameters) {
    std::vector<const char*> values;
    values.reserve(parameters.size());
    for (const Parameter& parameter : parameters)
        values.push_back(parameter.is_null ? nullptr : parameter.text.c_str());
    return values;
}

}  // namespace

// ---- Connecting

Link::Link(Connection connection, Settings settings)
    : connection_(std::move(connection)), settings_(std::move(settings)) {
    PQsetNoticeReceiver(connection_.get(), &Link::OnNotice, this);
}

/// The socket can be another one after each step: without encryption, or with it.
Link::Connection Link::ConnectTo(const Settings& server, int64_t deadline, std::string* reason) {
    std::vector<const char*> names, values;
    for (const auto& [name, value] : server) {
        names.push_back(name.c_str());
        values.push_back(value.c_str());
    }
    const std::string attributes = ValueOf(server, kAttributes);
    names.push_back(AreAttributes(attributes) ? kAttributes : nullptr);
    values.push_back("any");
    names.push_back(nullptr);
    values.push_back(nullptr);
    Connection connection(PQconnectStartParams(names.data(), values.data(), 0), &PQfinish);
    if (connection == nullptr) throw std::bad_alloc();
    // What the server says now is nobody's; the library would print it.
    PQsetNoticeReceiver(
        connection.get(), [](void*, const PGresult*) {}, nullptr);
    bool is_in_time = true;
    PostgresPollingStatusType step = PGRES_POLLING_WRITING;
    while (PQstatus(connection.get()) != CONNECTION_BAD && step != PGRES_POLLING_OK && is_in_time) {
        is_in_time =
            PollUntil(PQsocket(connection.get()), step == PGRES_POLLING_READING ? POLLIN : POLLOUT, deadline);
        if (is_in_time) step = PQconnectPoll(connection.get());
    }
    const bool is_connected = PQstatus(connection.get()) == CONNECTION_OK;
    const char* const refusal = is_connected ? Refusal(connection.get(), attributes) : nullptr;
    if (is_connected && refusal == nullptr && PQsetnonblocking(connection.get(), 1) == 0 &&
        PQenterPipelineMode(connection.get()) == 1)
        return connection;
    reason->append(reason->empty() ? "" : "; ");
    if (refusal != nullptr)
        reason->append(OneLine(PQhost(connection.get()))).append(": ").append(refusal);
    else
        reason->append(is_in_time ? Reason(connection.get()) : kSilent);
    return {nullptr, &PQfinish};
}

/// The servers share the time: one that does not answer leaves some for the next.
std::unique_ptr<Link> Link::Connect(const Settings& settings, SqlFailure* failure) {
    const int64_t begin = NowMs();
    std::string reason;
    std::vector<Settings> servers = ServersOf(settings, kConnectMs, &reason);
    const int64_t left = kConnectMs - (NowMs() - begin);
    for (size_t i = 0; i < servers.size(); ++i) {
        const int64_t share = std::max(left / static_cast<int64_t>(servers.size()), kLeastMs);
        Connection connection = ConnectTo(servers[i], NowMs() + share, &reason);
        if (connection != nullptr)
            return std::unique_ptr<Link>(new Link(std::move(connection), std::move(servers[i])));
    }
    *failure = LostFailure(reason);
    return nullptr;
}

// ---- Sending

void Link::Lose(std::string reason) {
    if (lost_.empty()) lost_ = std::move(reason);
}

void Link::Sent(int is_sent) {
    if (is_sent != 1) Lose(Reason(connection_.get()));
}

void Link::Prepare(const std::string& name, const std::string& text) {
    if (!is_lost()) Sent(PQsendPrepare(connection_.get(), name.c_str(), text.c_str(), 0, nullptr));
}

void Link::Execute(const std::string& name, const std::vector<Parameter>& parameters) {
    if (is_lost()) return;
    Sent(PQsendQueryPrepared(connection_.get(), name.c_str(), static_cast<int>(parameters.size()),
                             Pointers(parameters).data(), nullptr, nullptr, 0));
}

void Link::Query(const std::string& text, const std::vector<Parameter>& parameters) {
    if (is_lost()) return;
    Sent(PQsendQueryParams(connection_.get(), text.c_str(), static_cast<int>(parameters.size()), nullptr,
                           Pointers(parameters).data(), nullptr, nullptr, 0));
}

void Link::Sync() {
    if (!is_lost()) Sent(PQpipelineSync(connection_.get()));
}

void Link::Push() {
    if (is_lost()) return;
    // A server whose answers nobody takes reads nothing more.
    if (PQflush(connection_.get()) < 0 ||
        (PollUntil(PQsocket(connection_.get()), POLLIN, NowMs()) && PQconsumeInput(connection_.get()) == 0))
        Lose(Reason(connection_.get()));
}

// ---- Receiving

/// Asks by another link: a session that is neither stuck in the network nor waiting for a replica.  What
/// takes a writer long makes the server's log longer: when it does not, the session's process is stopped.
bool Link::IsAtWork() {
    constexpr const char kAsk[] =
        "SELECT CASE WHEN wait_event IS NULL AND NOT pg_is_in_recovery()"
        " THEN pg_wal_lsn_diff(pg_current_wal_insert_lsn(), '0/0')::bigint / 8192 END"
        " FROM pg_stat_activity WHERE pid = $1 AND state = 'active'"
        " AND wait_event_type IS DISTINCT FROM 'Client' AND wait_event IS DISTINCT FROM 'SyncRep'";
    if (patience_ == Patience::kNone || NowMs() - asked_ >= kWorkMs) return false;
    SqlFailure failure;
    const std::unique_ptr<Link> other = Connect(settings_, &failure);
    if (other == nullptr) return false;
    other->patience_ = Patience::kNone;
    other->Query(kAsk, {{std::to_string(PQbackendPID(connection_.get())), false}});
    other->Sync();
    const Result answer = other->Answer();
    if (answer == nullptr || PQntuples(answer.get()) != 1 || PQnfields(answer.get()) != 1) return false;
    const std::string before = std::exchange(log_length_, PQgetvalue(answer.get(), 0, 0));
    return patience_ == Patience::kOfReader || before.empty() || before != log_length_;
}

/// Waits until there is something to read, or room to send what is left.
bool Link::Wait(int64_t deadline, bool is_sending) {
    const short events = static_cast<short>(is_sending ? POLLIN | POLLOUT : POLLIN);
    if (!PollUntil(PQsocket(connection_.get()), events, deadline)) {
        if (!IsAtWork()) Lose(kSilent);
        return !is_lost();
    }
    if (PQconsumeInput(connection_.get()) == 1) return true;
    Lose(Reason(connection_.get()));
    return false;
}

/// PQgetResult without its own waiting.
PGresult* Link::Next() {
    asked_ = NowMs();
    log_length_.clear();
    int64_t deadline = asked_ + kSilenceMs;
    for (int left = PQflush(connection_.get()); PQisBusy(connection_.get()) != 0;) {
        if (left < 0) {
            Lose(Reason(connection_.get()));
            return nullptr;
        }
        if (!Wait(deadline, left > 0)) return nullptr;
        deadline = std::min(NowMs() + kSilenceMs, asked_ + kWorkMs);
        left = PQflush(connection_.get());
    }
    return PQgetResult(connection_.get());
}

Result Link::Answer() {
    constexpr int kSeparatorsMax = 3;
    Result answer(nullptr, &PQclear);
    for (int i = 0; i < kSeparatorsMax && answer == nullptr && !is_lost(); ++i)
        answer.reset(Next());
    if (is_lost()) return {nullptr, &PQclear};
    if (answer == nullptr) {
        Lose("the server's answers make no sense");
    } else if (PQstatus(connection_.get()) == CONNECTION_BAD) {
        Lose(Reason(connection_.get()));
        answer.reset();
    }
    return answer;
}

/// Called from inside the library, which nothing may be thrown through.
void Link::OnNotice(void* self, const PGresult* notice) try {
    const char* severity = PQresultErrorField(notice, PG_DIAG_SEVERITY_NONLOCALIZED);
    const char* message = PQresultErrorField(notice, PG_DIAG_MESSAGE_PRIMARY);
    if (severity != nullptr && message != nullptr && strcmp(severity, "WARNING") == 0)
        static_cast<Link*>(self)->warning_ = OneLine(message);
} catch (const std::bad_alloc&) {
    static_cast<Link*>(self)->warning_.assign("?");
}

}  // namespace koli::host
