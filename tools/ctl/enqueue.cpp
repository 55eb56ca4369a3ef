#include "tools/ctl/enqueue.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <functional>

#include "tools/ctl/member_request.h"
#include "tools/ctl/queue_service.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/submit.h"

namespace koli::ctl {
namespace {

constexpr size_t kInputMax = 64 << 20;         // bytes: some 600,000 requests
constexpr size_t kMemberInputMax = 16 << 20;   // of one call of the service
constexpr int64_t kMemberQueueMax = 64 << 20;  // of the queue that the service appends to
constexpr time_t kWakeEvery = 60;              // seconds

/// Reads to the end.  Returns the reason of a failure, or "".
std::string ReadInput(int fd, size_t limit, std::string* text) {
    char block[65536];
    for (;;) {
        const ssize_t length = read(fd, block, sizeof block);
        if (length < 0 && errno == EINTR) continue;
        if (length < 0) return strerror(errno);
        if (length == 0) return "";
        text->append(block, static_cast<size_t>(length));
        if (text->size() > limit) return "more than " + std::to_string(limit >> 20) + " MiB at once";
    }
}

bool IsRequest(std::string_view line) {
    return line.size() > 2 && line.size() < kRequestLineMax && line[1] == ':' &&
           strchr("ADNRTUad", line[0]) != nullptr && line.find('\0') == std::string_view::npos;
}

/// Why a line is refused; null when it is not.
using Rule = std::function<const char*(std::string_view line)>;

/// Counts the lines.  Returns what is wrong with one of them, or "": the last one must be whole, too, or it
/// may be the beginning of what a writer that died had to say.
std::string CheckLines(Submission* submission, const Rule& rule) {
    const std::string_view lines = submission->lines;
    for (size_t at = 0, end = 0; at < lines.size(); at = end + 1) {
        end = lines.find('\n', at);
        const std::string name = "line " + std::to_string(++submission->requests);
        if (end == std::string_view::npos) return name + " has no end";
        const std::string_view line = lines.substr(at, end - at);
        if (!IsRequest(line)) return name + " is no request";
        if (const char* refusal = rule(line); refusal != nullptr) return name + " " + refusal;
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

/// The daemon begins ten seconds after the last signal, which nobody may put off for good: there is one for
/// the first request, and one a minute as long as that waits.  The queue's time of access tells of the last.
Wake WakeSparingly(const Places& places, bool was_empty) {
    struct stat queue;
    const bool waits = lstat(places.queue.c_str(), &queue) == 0;
    timespec now{};  // time() may lag behind the times of files
    clock_gettime(CLOCK_REALTIME, &now);
    const time_t age = waits ? now.tv_sec - queue.st_atime : 0;  // negative: the clock was set back
    if (!was_empty && age >= 0 && age < kWakeEvery)
        return DaemonPid(places.pid_file) > 0 ? Wake::kWoken : Wake::kNotRunning;
    const timespec times[2] = {{0, UTIME_NOW}, {0, UTIME_OMIT}};
    utimensat(AT_FDCWD, places.queue.c_str(), times, AT_SYMLINK_NOFOLLOW);
    return DaemonWake(places.pid_file);
}

}  // namespace

int Enqueue(const Context& context, const WaitOptions& options) {
    Submission submission;
    std::string refusal = ReadInput(STDIN_FILENO, kInputMax, &submission.lines);
    const bool is_read = refusal.empty() || submission.lines.size() > kInputMax;
    const auto any = [](std::string_view) -> const char* { return nullptr; };
    if (refusal.empty()) refusal = CheckLines(&submission, any);
    if (refusal.empty()) return Submit(context, submission, options);
    Complain("standard input: %s", refusal.c_str());
    return is_read ? kExitUsage : kExitFiles;
}

int QueueServe(const Places& places, const std::vector<std::string>& shares, int peer) {
    Submission submission;
    Queued queued;
    std::string& refusal = queued.batch.error;
    refusal = ReadInput(peer, kMemberInputMax, &submission.lines);
    if (refusal.empty()) refusal = CheckEnd(&submission.lines);
    const auto rule = [&shares](std::string_view line) { return MemberRefusal(line, shares); };
    if (refusal.empty()) refusal = CheckLines(&submission, rule);
    if (refusal.empty() && submission.requests > 0)
        queued.batch = QueueAppend(places.queue, submission.lines, kMemberQueueMax);
    if (refusal.empty()) queued.wake = WakeSparingly(places, queued.batch.was_empty);
    return AnswerSend(peer, queued) ? kExitDone : kExitFiles;
}

}  // namespace koli::ctl
