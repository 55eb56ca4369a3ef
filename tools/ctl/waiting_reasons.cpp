#include "tools/ctl/waiting_reasons.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "base/reading_mark.h"
#include "base/regular_file.h"
#include "index/record/share_path.h"
#include "tools/ctl/batch_state.h"
#include "tools/ctl/membership.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/request_writer.h"

namespace koli::ctl {
namespace {

/// The folders and files that a request line names: the shares for a library.
std::vector<std::string> NamedBy(const std::string& line) {
    const std::string argument = line.substr(2);
    if (line[0] == 'R' || line[0] == 'U') return ShareFolders(argument);
    std::vector<std::string> named{argument};
    if (line[0] == 'N')
        if (const size_t colon = argument.find(':'); colon != std::string::npos)
            named = {argument.substr(0, colon), argument.substr(colon + 1)};
    for (std::string& path : named) {
        PathCollapse(path.data());
        path.resize(strlen(path.c_str()));
    }
    return named;
}

bool IsAbout(const std::string& line, const std::string& path) {
    if (line.size() < 3 || line[1] != ':' || strchr("AaDdNRU", line[0]) == nullptr) return false;
    const std::vector<std::string> named = NamedBy(line);
    const bool is_one = line[0] == 'a' || line[0] == 'd';
    return std::ranges::any_of(named, [&](const std::string& name) {
        return IsAtOrBelow(name, path) || (!is_one && IsAtOrBelow(path, name));
    });
}

void AddUnreadable(const std::string& file, int error, Reasons* reasons) {
    reasons->push_back({"queue_unreadable", "what waits in " + file + " cannot be told: " + strerror(error) +
                                                (error == EACCES ? JoinHint(file) : "")});
}

std::string LineText(const WaitingRequest& request) {
    return "line " + std::to_string(request.line) + " of " + std::to_string(request.lines);
}

void AddQueued(const Places& places, const std::string& path, Reasons* reasons) {
    const WaitingRequest request = RequestFind(places.queue, path);
    if (request.error != 0) AddUnreadable(places.queue, request.error, reasons);
    if (request.line > 0)
        reasons->push_back(
            {"waiting", "a request that concerns it waits in the queue: " + LineText(request)});
}

void AddInBatch(const Places& places, int pid, const std::string& path, Reasons* reasons) {
    const BatchState batch = BatchStateOf(places, pid);
    if (batch.kind == BatchState::kNone) return;
    const WaitingRequest request = RequestFind(places.batch, path);
    if (request.error != 0) AddUnreadable(places.batch, request.error, reasons);
    if (request.line == 0) return;
    const std::string line = " (" + LineText(request) + ")";
    if (batch.kind == BatchState::kRunning)
        reasons->push_back(
            {"in_batch", "the daemon is at work on a batch with a request that concerns it" + line});
    else if (batch.kind == BatchState::kLeftOver)
        reasons->push_back({"in_batch",
                            "a batch with a request that concerns it was interrupted, and is done at the "
                            "daemon's next start" +
                                line});
    else
        reasons->push_back({"in_kept_batch", "a batch with a request that concerns it is kept" + line + ": " +
                                                 batch.database + (batch.database.empty() ? "" : ": ") +
                                                 batch.reason + "; the next attempt is at " +
                                                 TimeText(batch.retry)});
}

void AddReading(const Places& places, int pid, const std::string& path, Reasons* reasons) {
    WorkReport report;
    if (WorkReportOf(places, pid, &report) && path == report.path)
        reasons->push_back({"being_read", "the daemon is at work on it at this moment"});
    if (ReadingMarkOpenToAsk(places.reading_file.c_str()) &&
        ReadingMarkLook(path.c_str()) != PastReading::kNothing)
        reasons->push_back({"brought_down", kBroughtDown});
}

}  // namespace

WaitingRequest RequestFind(const std::string& file, const std::string& path) {
    const std::unique_ptr<FILE, int (*)(FILE*)> lines(StreamOf(RegularFile(file.c_str()).Release()), fclose);
    if (lines == nullptr) return {.error = errno == ENOENT ? 0 : errno};
    WaitingRequest found;
    char* text = nullptr;
    size_t size = 0;
    for (ssize_t length; (length = getline(&text, &size, lines.get())) > 0;) {
        ++found.lines;
        if (text[length - 1] == '\n') text[--length] = '\0';
        if (found.line == 0 && static_cast<size_t>(length) < kRequestLineMax && IsAbout(text, path))
            found.line = found.lines;
    }
    if (ferror(lines.get()) != 0) found.error = errno;
    free(text);
    return found;
}

Reasons WaitingReasons(const Places& places, const std::string& path) {
    Reasons reasons;
    const int pid = DaemonPid(places.pid_file);
    if (pid == 0) reasons.push_back({"daemon_down", "the daemon does not run"});
    AddInBatch(places, pid, path, &reasons);
    AddQueued(places, path, &reasons);
    AddReading(places, pid, path, &reasons);
    return reasons;
}

}  // namespace koli::ctl
