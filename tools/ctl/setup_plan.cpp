#include "tools/ctl/setup_plan.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/paths.h"
#include "settings_text.h"

namespace koli::ctl {
namespace {

SetupStep::State StateOf(const SetupRoot& root, const SetupStep& step) {
    const std::string path = root.Path(step.path);
    struct stat status;
    if (lstat(path.c_str(), &status) != 0)
        return errno == ENOENT ? SetupStep::kMissing : SetupStep::kInTheWay;
    bool is_right = false;
    if (step.kind == SetupStep::kLink) {
        std::string target(step.value.size() + 1, '\0');
        const ssize_t length = readlink(path.c_str(), target.data(), target.size());
        is_right = length >= 0 && target.substr(0, static_cast<size_t>(length)) == step.value;
    } else if (stat(path.c_str(), &status) == 0) {
        is_right = step.kind == SetupStep::kFolder ? S_ISDIR(status.st_mode) : S_ISREG(status.st_mode);
    }
    return is_right ? SetupStep::kPresent : SetupStep::kInTheWay;
}

/// Collects the steps; folders bring the missing ones above them.
class Planner {
  public:
    explicit Planner(const SetupRoot& root) : root_(root) {}

    void Folder(const std::string& path) {
        const size_t slash = path.rfind('/');
        const std::string parent = path.substr(0, slash);
        if (!parent.empty() && StateOf(root_, {SetupStep::kFolder, parent, ""}) == SetupStep::kMissing)
            Folder(parent);
        Add({SetupStep::kFolder, path, ""});
    }
    void Link(const std::string& path, const std::string& target) { Add({SetupStep::kLink, path, target}); }
    void File(const std::string& path, const char* text) { Add({SetupStep::kFile, path, text}); }

    std::vector<SetupStep> steps;

  private:
    void Add(SetupStep step) {
        const auto is_same = [&](const SetupStep& other) { return other.path == step.path; };
        if (std::ranges::any_of(steps, is_same)) return;
        step.state = StateOf(root_, step);
        steps.push_back(std::move(step));
    }
    const SetupRoot& root_;
};

std::string FolderOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

}  // namespace

/// The folder of the manifest comes first, so that every step can be recorded.
std::vector<SetupStep> SetupPlan(const SetupRoot& root, const std::string& volume) {
    Planner planner(root);
    planner.Folder("/var/lib/koli");
    planner.Folder(FolderOf(paths::kQueue));
    planner.Folder(FolderOf(paths::kMusicShare));
    for (const std::string link : {paths::kMusicShare, paths::kVideoShare, paths::kPhotoShare}) {
        const std::string target = volume + link.substr(link.rfind('/'));
        planner.Folder(target);
        planner.Link(link, target);
    }
    planner.Folder(FolderOf(paths::kDefaults));
    planner.File(paths::kDefaults, kDefaultsText);
    planner.Folder(FolderOf(paths::kConfig));
    planner.File(paths::kConfig, kConfigText);
    return std::move(planner.steps);
}

}  // namespace koli::ctl
