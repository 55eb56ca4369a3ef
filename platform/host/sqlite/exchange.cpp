#include "platform/host/sqlite/exchange.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/folder_sync.h"

namespace koli::host {
namespace {

constexpr int kLockAttempts = 100;  // two seconds in all: whoever only asks holds it for an instant
constexpr timespec kLockPause{0, 20'000'000};  // 20 ms
constexpr int kNamesMax = 100;

bool Exists(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

/// The file that a name leads to: the engine looks for the log beside that.
std::string WithoutLinks(const std::string& file) {
    char real[PATH_MAX];
    return realpath(file.c_str(), real) != nullptr ? real : file;
}

std::string FolderOf(const std::string& file) {
    const size_t slash = file.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : file.substr(0, slash);
}

int OpenFolder(const std::string& folder) {
    return open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

std::string DatedName(const std::string& file, time_t when) {
    char date[32];
    tm parts{};
    gmtime_r(&when, &parts);
    strftime(date, sizeof date, "%Y%m%dT%H%M%SZ", &parts);
    return file + "-damaged-" + date;
}

/// Renames without ever writing over something.
bool RenameTo(const std::string& from, const std::string& to) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS) return false;  // not every file system can
    if (Exists(to)) {
        errno = EEXIST;
        return false;
    }
    return rename(from.c_str(), to.c_str()) == 0;
}

bool IsSameFile(const std::string& a, const std::string& b) {
    struct stat first, second;
    return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

}  // namespace

// ---- The lock

bool DatabaseIsFree(const std::string& file, std::string* reason) {
    DatabaseExchange exchange(file);
    const int folder = OpenFolder(FolderOf(exchange.file()));
    if (folder < 0) return true;  // whoever opens the database is told why it cannot
    const bool is_decided = exchange.IsDecided();
    const bool is_locked =
        flock(folder, (is_decided ? LOCK_EX : LOCK_SH) | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    // One that has been decided meanwhile is for the next who asks.
    const bool is_free = !is_locked && is_decided == exchange.IsDecided();
    if (!is_free) *reason = "database is locked: it is being repaired";
    const bool is_done = is_free && exchange.CarryOut();
    if (is_free && !is_done) *reason = "its repair cannot be carried out: " + exchange.error();
    close(folder);
    return is_done;
}

std::unique_ptr<RepairLock> RepairLock::Take(const std::string& file) {
    const int folder = OpenFolder(FolderOf(WithoutLinks(file)));
    if (folder < 0) return nullptr;
    for (int attempt = 0; attempt < kLockAttempts; ++attempt) {
        if (flock(folder, LOCK_EX | LOCK_NB) == 0) return std::unique_ptr<RepairLock>(new RepairLock(folder));
        if (errno != EWOULDBLOCK && errno != EINTR) break;
        nanosleep(&kLockPause, nullptr);
    }
    const int error = errno;
    close(folder);
    errno = error;
    return nullptr;
}

RepairLock::~RepairLock() {
    close(fd_);
}

// ---- The exchange

DatabaseExchange::DatabaseExchange(const std::string& file)
    : file_(WithoutLinks(file)), folder_(FolderOf(file_)) {}

bool DatabaseExchange::Failed(const char* what) {
    error_ = std::string(what) + ": " + strerror(errno);
    return false;
}

bool DatabaseExchange::IsDecided() const {
    return Exists(decided());
}

/// The name is dated by the new database's last change, so that everybody who carries the exchange out finds
/// the same one.
bool DatabaseExchange::FindName() {
    struct stat status;
    if (stat(decided().c_str(), &status) != 0) return Failed(decided().c_str());
    set_aside_ = DatedName(file_, status.st_mtime);
    return true;
}

bool DatabaseExchange::Decide() {
    if (IsDecided()) return true;
    struct stat status;
    if (stat(building().c_str(), &status) != 0) return Failed(building().c_str());
    // A repair of the same second may have taken the name.
    timespec times[2] = {status.st_atim, status.st_mtim};
    while (Exists(DatedName(file_, times[1].tv_sec)) || Exists(DatedName(file_, times[1].tv_sec) + "-wal"))
        ++times[1].tv_sec;
    if (utimensat(AT_FDCWD, building().c_str(), times, 0) != 0) return Failed(building().c_str());
    const int made = open(building().c_str(), O_RDONLY | O_CLOEXEC);
    const bool synced = made >= 0 && fsync(made) == 0;
    if (made >= 0) close(made);
    if (!synced || rename(building().c_str(), decided().c_str()) != 0) return Failed(building().c_str());
    return FolderSync(folder_.c_str()) || Failed(folder_.c_str());
}

/// A program that heeds no lock may have made a second log: that is kept beside the first.
bool DatabaseExchange::MoveAside(const std::string& from, const std::string& to) {
    for (int number = 1; number < kNamesMax && Exists(from); ++number)
        if (!RenameTo(from, number == 1 ? to : to + "." + std::to_string(number)) && errno != EEXIST &&
            errno != ENOENT)
            return Failed(from.c_str());
    return !Exists(from) || Failed(from.c_str());
}

bool DatabaseExchange::MoveLog() {
    for (const char* ending : {"-wal", "-journal"})
        if (!MoveAside(file_ + ending, set_aside_ + ending)) return false;
    const std::string index = file_ + "-shm";
    return unlink(index.c_str()) == 0 || errno == ENOENT || Failed(index.c_str());
}

bool DatabaseExchange::SetLogAside() {
    return FindName() && MoveLog() && (FolderSync(folder_.c_str()) || Failed(folder_.c_str()));
}

bool DatabaseExchange::KeepDamaged() {
    if (!FindName()) return false;
    std::string name = set_aside_;
    for (int number = 2; Exists(file_) && !IsSameFile(file_, name); ++number) {
        if (link(file_.c_str(), name.c_str()) == 0) break;
        if (errno == EEXIST && number < kNamesMax) {
            name = set_aside_ + "." + std::to_string(number);
            continue;
        }
        // A file system without second names.  For an instant the database has none of its own, but the
        // decided exchange keeps it from being made anew.
        if (!RenameTo(file_, name)) return Failed(file_.c_str());
    }
    return FolderSync(folder_.c_str()) || Failed(folder_.c_str());
}

bool DatabaseExchange::Replace() {
    if (!IsDecided()) return true;
    if (!FindName() || !MoveLog()) return false;  // whatever has come since
    if (rename(decided().c_str(), file_.c_str()) != 0) return Failed(file_.c_str());
    return FolderSync(folder_.c_str()) || Failed(folder_.c_str());
}

bool DatabaseExchange::CarryOut() {
    return !IsDecided() || (SetLogAside() && KeepDamaged() && Replace());
}

}  // namespace koli::host
