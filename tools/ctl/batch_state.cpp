#include "tools/ctl/batch_state.h"

#include <sys/stat.h>

#include <cstdlib>
#include <sstream>

#include "base/regular_file.h"
#include "platform/host/file_times.h"

namespace koli::ctl {
namespace {

constexpr size_t kStateMax = 4096;  // bytes; the daemon writes some lines

/// The daemon replaces the file as a whole: one read gives one state.
std::string StateText(const std::string& file) {
    const RegularFile state(file.c_str());
    std::string text(kStateMax, '\0');
    const ssize_t length = state.ok() ? ReadAt(state.descriptor(), 0, text.data(), text.size()) : 0;
    text.resize(length > 0 ? static_cast<size_t>(length) : 0);
    return text;
}

void TakeLine(const std::string& key, const std::string& value, BatchState* state) {
    if (key == "batch" && value == "kept") state->kind = BatchState::kKept;
    if (key == "database") state->database += (state->database.empty() ? "" : ", ") + value;
    if (key == "reason") state->reason += (state->reason.empty() ? "" : ", ") + value;
    if (key == "since") state->since = strtoll(value.c_str(), nullptr, 10);
    if (key == "retry") state->retry = strtoll(value.c_str(), nullptr, 10);
}

}  // namespace

const char* BatchStateName(BatchState::Kind kind) {
    switch (kind) {
        case BatchState::kNone:
            return "none";
        case BatchState::kRunning:
            return "running";
        case BatchState::kKept:
            return "kept";
        case BatchState::kLeftOver:
            return "left over";
    }
    return "";
}

BatchState BatchStateOf(const Places& places, int pid) {
    struct stat status;
    if (stat(places.batch.c_str(), &status) != 0) return {};
    if (pid <= 0) return {BatchState::kLeftOver};
    if (ChangeTime(places.state_file) < ChangeTime(places.pid_file)) return {BatchState::kRunning};
    BatchState state;
    std::istringstream lines(StateText(places.state_file));
    for (std::string line; std::getline(lines, line);)
        if (const size_t equals = line.find('='); equals != std::string::npos)
            TakeLine(line.substr(0, equals), line.substr(equals + 1), &state);
    return state.kind == BatchState::kKept ? state : BatchState{BatchState::kRunning};
}

bool WorkReportOf(const Places& places, int pid, WorkReport* report) {
    return pid > 0 && WorkReportRead(places.progress.c_str(), report) && report->pid == pid;
}

std::string TimeText(time_t when) {
    char text[32] = "";
    if (when > 0) host::WriteLocalTime(when, text, sizeof text);
    return text;
}

time_t ChangeTime(const std::string& file) {
    struct stat status;
    return stat(file.c_str(), &status) == 0 ? status.st_mtime : 0;
}

}  // namespace koli::ctl
