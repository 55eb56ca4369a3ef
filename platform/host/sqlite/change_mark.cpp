// What a connection does for a program that reads beside the daemon for days.
#include <sys/stat.h>

#include <string>

#include "platform/host/sqlite/connection.h"

namespace koli::host {
namespace {

/// What a look at a file tells of its contents.
std::string MarkOf(const std::string& file) {
    struct stat status;
    if (stat(file.c_str(), &status) != 0) return "-";
    return std::to_string(status.st_dev) + "." + std::to_string(status.st_ino) + "." +
           std::to_string(status.st_size) + "." + std::to_string(status.st_mtim.tv_sec) + "." +
           std::to_string(status.st_mtim.tv_nsec);
}

}  // namespace

/// The engine counts what it sees in the log; of a file that was opened as one that nobody writes, or that
/// another has taken the place of, only a look at the files tells.
std::string Sqlite::ChangeMark() {
    return std::to_string(QueryNumber("PRAGMA data_version")) + " " + MarkOf(file_) + " " +
           MarkOf(file_ + "-wal");
}

void Sqlite::SaveMemory() {
    ExecuteScript("PRAGMA cache_size=-128");  // KiB
}

}  // namespace koli::host
