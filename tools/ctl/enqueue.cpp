#include "tools/ctl/enqueue.h"

#include <sys/stat.h>
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
std::string ReadInput(std::string* text) {
    char block[65536];
    for (;;) {
        const ssize_t length = read(STDIN_FILENO, block, sizeof block);
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

/// Counts the lines, and gives the last one its end.  Returns what is wrong with one of them, or "".
std::string CheckLines(Submission* submission) {
    std::string& lines = submission->lines;
    if (!lines.empty() && lines.back() != '\n') lines += '\n';
    for (size_t at = 0, end = 0; at < lines.size(); at = end + 1) {
        end = lines.find('\n', at);
        ++submission->requests;
        if (!IsRequest(std::string_view(lines).substr(at, end - at)))
            return "line " + std::to_string(submission->requests) + " is no request";
    }
    return "";
}

bool IsSocket(int fd) {
    struct stat status;
    return fstat(fd, &status) == 0 && S_ISSOCK(status.st_mode);
}

/// The exit code is for the service's log: the caller gets the answer.
int Serve(const Places& places, const std::string& lines, const std::string& refusal) {
    Queued queued;
    if (!refusal.empty())
        queued.batch.error = refusal;
    else if (!lines.empty())
        queued.batch = QueueAppend(places.queue, lines);  // never by the service, which this is
    if (queued.batch.error.empty()) queued.wake = DaemonWake(places.pid_file);
    return AnswerSend(STDIN_FILENO, queued) ? kExitDone : kExitFiles;
}

}  // namespace

int Enqueue(const Context& context, const WaitOptions& options) {
    Submission submission;
    std::string refusal = ReadInput(&submission.lines);
    if (refusal.empty()) refusal = CheckLines(&submission);
    if (IsSocket(STDIN_FILENO)) return Serve(context.places, submission.lines, refusal);
    if (refusal.empty()) return Submit(context, submission, options);
    Complain("standard input: %s", refusal.c_str());
    return kExitUsage;
}

}  // namespace koli::ctl
