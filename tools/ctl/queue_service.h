// The way into the queue for those who may not write to the spool.
//
// A service of the machine (koliindexd-queue) runs "koliindexctl enqueue --serve" as root for each connection
// to a local socket, which only the members of its group may open.  The caller writes whole request lines,
// then an empty line, and closes its half; no request = the daemon is only woken.  Without the empty line the
// caller has died on the way, and nothing is queued.  The answer is one letter, 'Q' (queued) with a digit
// (the value of Wake) and the offset of the lines in the queue file, or 'E' with the reason of a refusal
// behind it; with 'Q' and at least one line comes a descriptor of the queue file that took them, good for
// nothing but fstat().
#pragma once

#include <string>

#include "tools/ctl/context.h"
#include "tools/ctl/request_writer.h"

namespace koli::ctl {

/// Behind the request lines of a caller.
inline constexpr const char kEndOfRequests[] = "\n";

/// What has become of requests.
struct Queued {
    QueuedBatch batch;
    Wake wake = Wake::kNotRunning;
};

/// Appends whole lines to the queue and wakes the daemon, through the service when this user may not.
Queued QueueSubmit(const Places& places, const std::string& lines);

/// Wakes the daemon, through the service when this user may not.
Wake WakeSubmit(const Places& places);

/// Sends an answer on the socket `peer`.  False when the caller has gone.
bool AnswerSend(int peer, const Queued& queued);

}  // namespace koli::ctl
