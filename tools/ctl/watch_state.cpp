#include "tools/ctl/watch_state.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/directory_listing.h"
#include "base/regular_file.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/small_file.h"

namespace koli::ctl {
namespace {

constexpr size_t kStateMax = 1 << 20;  // bytes
constexpr const char kDoor[] = "/lock";
constexpr const char* kNames[] = {"pending", "in-step", "away"};  // by ShareState::Kind

struct flock WholeFile(short kind) {
    struct flock lock {};
    lock.l_type = kind;
    lock.l_whence = SEEK_SET;
    return lock;
}

/// Who holds the file against readers; 0 = nobody, -1 = that cannot be told.  Asking takes no lock.
pid_t HolderOf(int fd) {
    struct flock lock = WholeFile(F_RDLCK);
    if (fcntl(fd, F_GETLK, &lock) != 0) return -1;
    return lock.l_type == F_WRLCK ? lock.l_pid : 0;
}

bool Lock(int fd, int command) {
    struct flock lock = WholeFile(F_WRLCK);
    return fcntl(fd, command, &lock) == 0;
}

/// Whoever has the door changes what is in the folder, or looks at it with nobody else changing it.  Invalid,
/// with errno set, when it cannot be had.
UniqueFd DoorTake(const std::string& folder) {
    UniqueFd door(open((folder + kDoor).c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    return door.valid() && Lock(door.get(), F_SETLKW) ? std::move(door) : UniqueFd();
}

ShareState ShareOf(const std::string& text) {
    ShareState share;
    const size_t time = text.find(' '), path = text.find(' ', time + 1);
    if (time == std::string::npos || path == std::string::npos) return share;
    for (const auto kind : {ShareState::kPending, ShareState::kInStep, ShareState::kAway})
        if (text.substr(0, time) == kNames[kind]) share.kind = kind;
    share.in_step = strtoll(text.c_str() + time, nullptr, 10);
    share.path = text.substr(path + 1);
    return share;
}

std::vector<ShareState> SharesIn(const std::string& file) {
    std::vector<ShareState> shares;
    std::string text;
    if (!SmallFileRead(file, &text, kStateMax)) return shares;
    for (const auto& [key, value] : KeyValueLines(text))
        if (key == "share") shares.push_back(ShareOf(value));
    std::erase_if(shares, [](const ShareState& share) { return share.path.empty(); });
    return shares;
}

bool Overlap(const std::string& one, const std::string& other) {
    return IsAtOrBelow(one, other) || IsAtOrBelow(other, one);
}

bool IsNumber(const char* name) {
    return *name != '\0' && strspn(name, "0123456789") == strlen(name);
}

/// `has_door`: what nobody holds is cleared away.
std::vector<RunningWatcher> Watchers(const std::string& folder, bool has_door) {
    std::vector<RunningWatcher> running;
    DirectoryListing listing;
    if (!listing.Open(folder.c_str())) return running;
    for (auto entry = listing.Next(); entry.name != nullptr; entry = listing.Next()) {
        // A process loses its lock on a file when it closes any descriptor of it.
        if (!IsNumber(entry.name) || entry.name == std::to_string(getpid())) continue;
        const std::string path = folder + "/" + entry.name;
        const RegularFile file(path.c_str());
        const pid_t pid = file.ok() ? HolderOf(file.descriptor()) : -1;
        if (pid > 0)
            running.push_back({pid, SharesIn(path)});
        else if (has_door && pid == 0)
            unlink(path.c_str());
    }
    return running;
}

}  // namespace

std::vector<RunningWatcher> RunningWatchers(const std::string& folder) {
    return Watchers(folder, false);
}

WatchState::~WatchState() {
    if (!file_.empty()) unlink(file_.c_str());
}

/// The door makes looking and entering one step.
pid_t WatchState::Enter(const std::vector<std::string>& shares) {
    const bool is_made = mkdir(folder_.c_str(), 0750) == 0 || errno == EEXIST;
    const UniqueFd door = is_made ? DoorTake(folder_) : UniqueFd();
    const int error = door.valid() ? 0 : errno;
    for (const RunningWatcher& other : Watchers(folder_, error == 0))
        for (const ShareState& theirs : other.shares)
            for (const std::string& own : shares)
                if (Overlap(own, theirs.path)) return other.pid;
    errno = error;
    if (error != 0) return -1;
    file_ = folder_ + "/" + std::to_string(getpid());
    std::vector<ShareState> states(shares.size());
    for (size_t i = 0; i < shares.size(); ++i)
        states[i].path = shares[i];
    if (Write(states)) return 0;
    file_.clear();
    return -1;
}

/// Behind the door: an entry that is replaced while another watcher looks could be missed, or taken for one
/// that nobody holds.
void WatchState::Tell(const std::vector<ShareState>& shares) {
    if (file_.empty()) return;
    const UniqueFd door = DoorTake(folder_);
    Write(shares);
}

/// The new file is held before it takes the name: nobody finds one there that is not.
bool WatchState::Write(const std::vector<ShareState>& shares) {
    std::string text = "pid=" + std::to_string(getpid()) + "\n";
    for (const ShareState& share : shares)
        text += std::string("share=") + kNames[share.kind] + " " + std::to_string(share.in_step) + " " +
                share.path + "\n";
    const std::string made = file_ + ".new";
    if (unlink(made.c_str()) != 0 && errno != ENOENT) return false;
    UniqueFd fd(open(made.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0640));
    if (!fd.valid() || !Lock(fd.get(), F_SETLK)) return false;
    const bool is_written = write(fd.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (!is_written || rename(made.c_str(), file_.c_str()) != 0) {
        unlink(made.c_str());
        return false;
    }
    held_ = std::move(fd);
    return true;
}

}  // namespace koli::ctl
