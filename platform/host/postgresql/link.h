// A session on a server, whose every step ends at a deadline: the server may be stopped, and the network may
// keep silent.
#pragma once

#include <libpq-fe.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/host/postgresql/servers.h"
#include "platform/host/sql/sql.h"

namespace koli::host {

using Result = std::unique_ptr<PGresult, decltype(&PQclear)>;

/// A parameter as the server takes it; NULL when nothing was handed over.
struct Parameter {
    std::string text = {};
    bool is_null = true;
};

/// What is sent is answered in its order.  What fails makes the link lost: it then does nothing more.  So
/// does a server that keeps silent, unless it says to somebody else that it is still at work.
class Link {
  public:
    /// To the first of the servers that can be used; null with the reason when none answers within eight
    /// seconds, or two for each.
    static std::unique_ptr<Link> Connect(const Settings& settings, SqlFailure* failure);

    bool is_lost() const { return !lost_.empty(); }
    const std::string& lost() const { return lost_; }  ///< why; '' = it is not

    /// Puts one message behind the others that are still to be sent.
    void Prepare(const std::string& name, const std::string& text);
    void Execute(const std::string& name, const std::vector<Parameter>& parameters);
    void Query(const std::string& text, const std::vector<Parameter>& parameters);
    void Sync();  ///< what has failed before it keeps nothing behind it from being done
    /// Sends what can be sent without waiting.
    void Push();

    /// The answer to the next message, waited for; null when the link is lost.  The answer to Sync is one of
    /// its own.
    Result Answer();
    /// What reads much may take the server long, with nothing to see of it outside.
    void ExpectReading() { patience_ = Patience::kOfReader; }
    /// Gives it up.
    void Lose(std::string reason);
    /// Takes the last warning that has come since it was taken last.
    std::string TakeWarning() { return std::exchange(warning_, {}); }

  private:
    using Connection = std::unique_ptr<PGconn, decltype(&PQfinish)>;
    Link(Connection connection, Settings settings);
    static Connection ConnectTo(const Settings& server, int64_t deadline, std::string* reason);
    bool IsAtWork();
    static void OnNotice(void* self, const PGresult* notice);
    void Sent(int is_sent);
    bool Wait(int64_t deadline, bool is_sending);
    PGresult* Next();

    Connection connection_;
    const Settings settings_;
    int64_t asked_ = 0;  // ms; when the server was asked what is waited for
    enum class Patience { kNone, kOfWriter, kOfReader } patience_ = Patience::kOfWriter;
    std::string log_length_;  // of the server when it was asked last whether it is; in pages
    std::string lost_;
    std::string warning_;
};

}  // namespace koli::host
