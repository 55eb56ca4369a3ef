// What a plain machine needs for the daemon, as a list of steps that can be shown, done and undone.
#pragma once

#include <string>
#include <vector>

namespace koli::ctl {

struct SetupStep {
    enum Kind { kFolder, kLink, kFile };
    Kind kind;
    std::string path;
    std::string value;  // where a link points to; what a file holds
    enum State {
        kMissing,
        kPresent,  // there as it should be: nothing to do
        kInTheWay  // something else is there
    } state = kMissing;
};

/// The folder that everything lies under: "" for the machine itself; the tests have one of their own.
struct SetupRoot {
    std::string prefix;
    std::string Path(const std::string& path) const { return prefix + path; }
    std::string Manifest() const { return Path("/var/lib/koli/setup.manifest"); }
};

/// The steps for the shares of a volume, in the order in which they are done, compared with what is there.
/// `volume` is an absolute path without a '/' at its end.
std::vector<SetupStep> SetupPlan(const SetupRoot& root, const std::string& volume);

/// Does the missing steps and records each one in the manifest as soon as it is done.  False with the
/// reason in `error` when one fails: what was done until then is recorded.
bool SetupApply(const SetupRoot& root, const std::vector<SetupStep>& steps, std::string* error);

/// What has become of a recorded step.
struct SetupUndone {
    SetupStep step;
    std::string kept;  // why it stays: "" = it is removed
};

/// Removes what the manifest names and what is still as it was made, last step first.  The manifest keeps
/// what stays and goes when that is nothing.  False, with the reason in `error`, when there is no manifest or
/// it cannot be read or written.
bool SetupUndo(const SetupRoot& root, std::vector<SetupUndone>* undone, std::string* error);

}  // namespace koli::ctl
