#include "platform/host/postgresql/fence.h"

#include <algorithm>
#include <ctime>
#include <string>

#include "platform/host/postgresql/failure.h"

namespace koli::host {
namespace {

constexpr int kAttempts = 60;
constexpr int kLooks = 16;               // a second: the server hears late of a program that was ended
constexpr long kFirstPause = 2'000'000;  // ns, twice as long each time
constexpr long kLongestPause = 100'000'000;

// The lock has two numbers: of the library, and of the database.
constexpr const char kTake[] =
    "SELECT pg_try_advisory_lock(hashtext('koliindexd ' || current_schema()), ?1::integer)";
constexpr const char kHolder[] =
    " FROM pg_locks JOIN pg_stat_activity USING (pid) WHERE locktype = 'advisory' AND granted"
    " AND database = (SELECT oid FROM pg_database WHERE datname = current_database())"
    " AND classid::bigint = hashtext('koliindexd ' || current_schema())::bigint & 4294967295"
    " AND objid::bigint = ?1::bigint AND objsubid = 2 AND pid <> pg_backend_pid()";
constexpr const char kIsOwn[] =
    " AND usename = current_user AND application_name = current_setting('application_name')";

}  // namespace

bool FenceTake(Postgresql& sql, int database) {
    const std::string number = std::to_string(database);
    timespec pause{0, kFirstPause};
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const std::string taken = sql.Answer(kTake, {number});
        if (taken == "t") return true;
        if (taken.empty())  // without a failure: of a schema that somebody has just dropped
            return sql.failure().reason.empty() && sql.FailAs(LostFailure("the library has gone"));
        sql.Answer(std::string("SELECT pg_terminate_backend(pid)") + kHolder + kIsOwn, {number});
        if (!sql.failure().reason.empty()) return false;
        nanosleep(&pause, nullptr);
        pause.tv_nsec = std::min(2 * pause.tv_nsec, kLongestPause);
    }
    const std::string holder = sql.Answer(std::string("SELECT application_name") + kHolder, {number});
    return sql.FailAs({.reason = "another writes to this library: " + (holder.empty() ? "?" : holder),
                       .is_of_file = true,
                       .passes = true});
}

bool FenceIsHeld(Postgresql& sql, int database) {
    timespec pause{0, kFirstPause};
    for (int attempt = 0; attempt < kLooks; ++attempt) {
        const std::string holders =
            sql.Answer(std::string("SELECT count(*)") + kHolder, {std::to_string(database)});
        if (holders.empty() || holders == "0") return false;
        nanosleep(&pause, nullptr);
        pause.tv_nsec = std::min(2 * pause.tv_nsec, kLongestPause);
    }
    return true;
}

}  // namespace koli::host
