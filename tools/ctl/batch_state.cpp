#include "tools/ctl/batch_state.h"

#include <sys/stat.h>

#include <cstdlib>

#include "platform/host/file_times.h"
#include "tools/ctl/small_file.h"

namespace koli::ctl {
namespace {

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
    std::string text;  // of one state: the daemon replaces the file as a whole
    if (SmallFileRead(places.state_file, &text))
        for (const auto& [key, value] : KeyValueLines(text))
            TakeLine(key, value, &state);
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
