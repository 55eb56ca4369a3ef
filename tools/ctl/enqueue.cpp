#include "tools/ctl/enqueue.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/ctl/queue_service.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/submit.h"

namespace koli::ctl {
namespace {

constexpr size_t kInputMax = 64 << 20;  // bytes: some 600,000 requests

/// Reads to the end.  Returns the reason of a failure, or "".
std::string ReadInput(int fd, std::string* text) {
    char block[65536];
    for (;;) {
        const ssize_t length = read(fd, block, sizeof block);
        if (length < 0 && errno == EINTR) continue;
        if (length < 0) return strerror(errno);
        if (length == 0) return "";
        text->append(block, static_cast<size_t>(length));
        if (text->size() > kInputMax) return "more than 64 MiB at once";
    }
}

bool IsRequest(std::string_view line) {
    return line.size() > 2 && line.size() < kRequestLineMax && line[1] == ':' &&
           strchr("ADNRTUad", line[0]) != nullptr && line.find('\0') == std::string_view::npos;
}

/// Counts the lines.  Returns what is wrong with one of them, or "": the last one must be whole, too, or it
/// may be the beginning of what a writer that died had to say.
std::string CheckLines(Submission* submission) {
    const std::string_view lines = submission->lines;
    for (size_t at = 0, end = 0; at < lines.size(); at = end + 1) {
        end = lines.find('\n', at);
        const std::string name = "line " + std::to_string(++submission->requests);
        if (end == std::string_view::npos) return name + " has no end";
        if (!IsRequest(lines.substr(at, end - at))) return name + " is no request";
    }
    return "";
}

/// Takes the mark of the end away.  Returns what is wrong, or "".
std::string CheckEnd(std::string* lines) {
    const bool is_whole = *lines == kEndOfRequests || lines->ends_with("\n" + std::string(kEndOfRequests));
    if (!is_whole) return "the requests were cut off on their way";
    lines->resize(lines->size() - strlen(kEndOfRequests));
    return "";
}

}  // namespace

int Enqueue(const Context& context, const WaitOptions& options) {
    Submission submission;
    std::string refusal = ReadInput(STDIN_FILENO, &submission.lines);
    if (refusal.empty()) refusal = CheckLines(&submission);
    if (refusal.empty()) return Submit(context, submission, options);
    Complain("standard input: %s", refusal.c_str());
    return kExitUsage;
}

int QueueServe(const Places& places, int peer) {
    Submission submission;
    Queued queued;
    std::string& refusal = queued.batch.error;
    refusal = ReadInput(peer, &submission.lines);
    if (refusal.empty()) refusal = CheckEnd(&submission.lines);
    if (refusal.empty()) refusal = CheckLines(&submission);
    if (refusal.empty() && submission.requests > 0)
        queued.batch = QueueAppend(places.queue, submission.lines);  // never by the service, which this is
    if (refusal.empty()) queued.wake = DaemonWake(places.pid_file);
    return AnswerSend(peer, queued) ? kExitDone : kExitFiles;
}

}  // namespace koli::ctl
