// Doing the steps of a setup, and taking them back.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/unique_fd.h"
#include "tools/ctl/setup_manifest.h"
#include "tools/ctl/setup_plan.h"
#include "tools/ctl/small_file.h"

namespace koli::ctl {
namespace {

constexpr mode_t kFolderMode = 0755;
constexpr mode_t kDatabasesMode = 0750;  // what people's files hold is not for everybody
constexpr const char kDatabases[] = "/var/lib/koli";
constexpr mode_t kFileMode = 0644;

bool WriteFile(const std::string& path, const std::string& text, int flags) {
    const UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | flags, kFileMode));
    if (!file.valid()) return false;
    const ssize_t written = write(file.get(), text.data(), text.size());
    if (written >= 0 && static_cast<size_t>(written) != text.size()) errno = ENOSPC;
    return written >= 0 && static_cast<size_t>(written) == text.size() && fsync(file.get()) == 0;
}

/// Leaves errno as it is: it tells why the file could not be written.
void RemoveUnfinished(const std::string& path) {
    const int error = errno;
    unlink(path.c_str());
    errno = error;
}

bool Make(const SetupRoot& root, const SetupStep& step) {
    const std::string path = root.Path(step.path);
    switch (step.kind) {
        case SetupStep::kFolder:
            return mkdir(path.c_str(), step.path == kDatabases ? kDatabasesMode : kFolderMode) == 0;
        case SetupStep::kLink:
            return symlink(step.value.c_str(), path.c_str()) == 0;
        case SetupStep::kFile:
            if (WriteFile(path, step.value, O_EXCL)) return true;
            if (errno == EEXIST) return false;
            RemoveUnfinished(path);
            return false;
    }
    return false;
}

/// Why a link or file is not what was made; "" when it is, or when it has gone.
std::string ChangeOf(const std::string& path, const SetupStep& step) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) return "";
    if (step.kind == SetupStep::kFile) {
        std::string text;
        if (!SmallFileRead(path, &text)) return strerror(errno);
        return Checksum(text) == step.value ? "" : "it has been changed";
    }
    std::string target(step.value.size() + 1, '\0');
    const ssize_t length = readlink(path.c_str(), target.data(), target.size());
    const bool is_same = length >= 0 && target.substr(0, static_cast<size_t>(length)) == step.value;
    return is_same ? "" : "it has been changed";
}

/// Removes what is as it was made; returns why it stays otherwise.
std::string Unmake(const SetupRoot& root, const SetupStep& step) {
    const std::string path = root.Path(step.path);
    if (step.kind != SetupStep::kFolder) {
        if (std::string change = ChangeOf(path, step); !change.empty()) return change;
        return unlink(path.c_str()) == 0 || errno == ENOENT ? "" : strerror(errno);
    }
    if (rmdir(path.c_str()) == 0 || errno == ENOENT) return "";
    return errno == ENOTEMPTY || errno == EEXIST ? "it is not empty" : strerror(errno);
}

/// False for a manifest with a line that setup does not write: then nothing of it is trusted.
bool ManifestRead(const SetupRoot& root, std::vector<SetupStep>* steps, std::string* error) {
    std::string text;
    if (!SmallFileRead(root.Manifest(), &text)) {
        *error = errno == ENOENT
                     ? "nothing is recorded: setup has not been applied here, or it has been undone"
                     : "cannot read " + root.Manifest() + ": " + strerror(errno);
        return false;
    }
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        SetupStep step;
        if (!ManifestLineParse(text.substr(at, end - at), &step)) {
            *error = root.Manifest() + " is damaged; nothing has been removed";
            return false;
        }
        steps->push_back(step);
        at = end + 1;
    }
    return true;
}

/// As it was read: a file's value is its checksum already.
std::string RecordLine(const SetupStep& step) {
    if (step.kind != SetupStep::kFile) return ManifestLine(step);
    return "file\t" + step.path + '\t' + step.value + '\n';
}

}  // namespace

bool SetupApply(const SetupRoot& root, const std::vector<SetupStep>& steps, std::string* error) {
    for (const SetupStep& step : steps) {
        if (step.state != SetupStep::kMissing) continue;
        if (!Make(root, step)) {
            *error = "cannot make " + step.path + ": " + strerror(errno);
            return false;
        }
        // Folders above the manifest's own are every machine's.
        if (root.Manifest().starts_with(root.Path(step.path) + "/") && step.path != kDatabases) continue;
        if (WriteFile(root.Manifest(), ManifestLine(step), O_APPEND)) continue;
        *error =
            "made " + step.path + ", but cannot record it in " + root.Manifest() + ": " + strerror(errno);
        return false;
    }
    return true;
}

bool SetupUndo(const SetupRoot& root, std::vector<SetupUndone>* undone, std::string* error) {
    std::vector<SetupStep> steps;
    if (!ManifestRead(root, &steps, error)) return false;
    std::string kept;
    for (auto step = steps.rbegin(); step != steps.rend(); ++step) {
        const bool holds_manifest = root.Manifest().starts_with(root.Path(step->path) + "/");
        if (holds_manifest && kept.empty()) unlink(root.Manifest().c_str());
        const std::string reason =
            holds_manifest && !kept.empty() ? "it holds the record of what stays" : Unmake(root, *step);
        if (!reason.empty()) kept.insert(0, RecordLine(*step));
        undone->push_back({*step, reason});
    }
    if (kept.empty()) {
        unlink(root.Manifest().c_str());
        return true;
    }
    if (WriteFile(root.Manifest(), kept, O_TRUNC)) return true;
    *error = "cannot write " + root.Manifest() + ": " + strerror(errno);
    return false;
}

}  // namespace koli::ctl
