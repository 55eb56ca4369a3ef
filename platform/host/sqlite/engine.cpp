#include "platform/host/sqlite/engine.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/folder_sync.h"
#include "base/passing_error.h"
#include "platform/host/sqlite/connection.h"
#include "platform/host/sqlite/exchange.h"
#include "platform/host/sqlite/look.h"
#include "platform/host/sqlite/schema.h"

namespace koli::host {
namespace {

constexpr mode_t kDirectoryMode = 0750;  // what people's files hold is not for everybody
constexpr mode_t kParentMode = 0755;

/// True when the directory is there.
bool MakeDirectories(const std::string& directory) {
    for (size_t end = 0; end != std::string::npos;) {
        const size_t begin = end;
        end = directory.find('/', begin + 1);
        const mode_t mode = end == std::string::npos ? kDirectoryMode : kParentMode;
        if (mkdir(directory.substr(0, end).c_str(), mode) == 0) {
            if (!FolderSync(begin > 0 ? directory.substr(0, begin).c_str() : "/")) return false;
        } else if (errno != EEXIST && errno != EISDIR) {
            return false;
        }
    }
    struct stat status;
    errno = ENOTDIR;
    return stat(directory.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

time_t ChangeTime(const std::string& file) {
    struct stat status;
    return stat(file.c_str(), &status) == 0 ? status.st_mtime : 0;
}

}  // namespace

bool SqliteEngine::IsFree(int database, std::string* reason) const {
    return DatabaseIsFree(PlaceOf(database), reason);
}

std::unique_ptr<Sql> SqliteEngine::Open(int database, Sql::ChangeListener changed,
                                        SqlFailure* failure) const {
    if (!MakeDirectories(directory_)) {
        *failure = {.reason = strerror(errno), .passes = IsPassingError(errno)};
        return nullptr;
    }
    std::unique_ptr<Sqlite> sql = Sqlite::Open(PlaceOf(database), changed, failure);
    if (sql == nullptr || SchemaUpgrade(*sql, SchemaOf(database))) return sql;
    *failure = sql->failure();
    return nullptr;
}

std::unique_ptr<Sql> SqliteEngine::OpenToRead(int database, SqlFailure* failure) const {
    const std::string file = PlaceOf(database);
    struct stat status;
    if (stat(file.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR)) return nullptr;
    std::unique_ptr<Sqlite> sql = Sqlite::OpenToRead(file, failure);
    failure->is_denied = sql == nullptr && DatabaseIsDenied(file);
    if (failure->is_denied) failure->reason = strerror(EACCES);
    return sql;
}

DatabaseView SqliteEngine::Look(int database, DatabaseCheck check) const {
    const std::string file = PlaceOf(database);
    const bool is_repair_begun = DatabaseExchange(file).IsDecided();
    DatabaseView view = DatabaseLook(file, SchemaOf(database), check);
    view.is_repair_begun = is_repair_begun;
    view.changed = std::max(ChangeTime(file), ChangeTime(file + "-wal"));
    return view;
}

}  // namespace koli::host
