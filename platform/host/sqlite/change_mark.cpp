// What a connection does for a program that reads beside the daemon for days.
#include <sys/stat.h>

#include <string>

#include "platform/host/sqlite/connection.h"

namespace koli::host {
namespace {

/// What a look at a file tells of its contents.  One that is empty counts as none: whoever connects first
/// makes an empty log.
std::string MarkOf(const std::string& file) {
    struct stat status;
    if (stat(file.c_str(), &status) != 0 || status.st_size == 0) return "-";
    return std::to_string(status.st_dev) + "." + std::to_string(status.st_ino) + "." +
           std::to_string(status.st_size) + "." + std::to_string(status.st_mtim.tv_sec) + "." +
           std::to_string(status.st_mtim.tv_nsec);
}

}  // namespace

/// What the engine itself counts says something only within one connection, and who stays connected has the
/// daemon make room, again and again, for a writer that never comes.
std::string Sqlite::ChangeMark() {
    return MarkOf(file_) + " " + MarkOf(file_ + "-wal");
}

void Sqlite::SaveMemory() {
    ExecuteScript("PRAGMA cache_size=-128");  // KiB
}

}  // namespace koli::host
