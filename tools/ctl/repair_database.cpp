#include "tools/ctl/repair_database.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "index/record/share_path.h"
#include "platform/host/database_exchange.h"
#include "platform/paths.h"
#include "tools/ctl/folder_entries.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/status.h"

namespace koli::ctl {
namespace {

constexpr int kAttempts = 3;  // at reading a database that a program without the lock goes on writing

/// Changes with every write to the database or its log.
std::string StampOf(const std::string& file) {
    std::string stamp;
    for (const char* ending : {"", "-wal"}) {
        struct stat s;
        if (stat((file + ending).c_str(), &s) != 0) continue;
        for (const int64_t part :
             {static_cast<int64_t>(s.st_ino), static_cast<int64_t>(s.st_size),
              static_cast<int64_t>(s.st_mtim.tv_sec), static_cast<int64_t>(s.st_mtim.tv_nsec)})
            stamp += std::to_string(part) + ",";
        stamp += ";";
    }
    return stamp;
}

void AddPrivateAlbums(const std::string& folder, const std::string& above, host::Sql& sql, int64_t* added) {
    static constexpr const char kInsert[] =
        "INSERT OR IGNORE INTO photo_share (sharename, public, is_subdir) VALUES (?, 'f', ?)";
    FolderEntries found;
    if (FolderEntriesRead(folder, &found) != 0) return;
    for (const FolderEntry& entry : found.entries) {
        if (entry.kind != FolderEntry::kFolder || (above.empty() && entry.name == "#recycle")) continue;
        const std::string album = above + entry.name;
        host::SqlStatement* insert = sql.Kept(kInsert);
        if (insert == nullptr) return;
        insert->Text(1, album);
        insert->Text(2, above.empty() ? "f" : "t");
        if (const int rows = sql.Run(*insert); rows > 0) *added += rows;
        if (above.empty()) AddPrivateAlbums(folder + "/" + entry.name, album + "/", sql, added);
    }
}

/// An album that was lost would be made anew as the settings say, perhaps for everybody to see: each folder
/// that could be one gets a private album, unless its own was saved.
void KeepAlbumsPrivate(const host::Salvage& salvage, host::Sql& sql, int64_t* added) {
    const std::string share = VolumePath(paths::kPhotoShare);
    if (!salvage.IsWhole() && share != paths::kPhotoShare) AddPrivateAlbums(share, "", sql, added);
}

/// Builds the new database; one to which rows were written meanwhile is read again.
bool Build(const host::DatabaseExchange& exchange, const host::DatabaseKind& kind, RepairResult* result) {
    const bool has_albums = result->name == "photo.db";
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const std::string before = StampOf(exchange.file());
        result->private_albums = 0;
        result->salvage =
            host::DatabaseSalvage(exchange.file(), exchange.building(), kind.schema,
                                  [&](const host::Salvage& salvage, host::Sql& sql) {
                                      if (has_albums)
                                          KeepAlbumsPrivate(salvage, sql, &result->private_albums);
                                  });
        std::string error = result->salvage.error;
        if (error.empty()) {
            const host::DatabaseFault fault =
                host::DatabaseLook(exchange.building(), kind.schema, host::DatabaseCheck::kThorough);
            error = fault.reason;
        }
        if (!error.empty()) {
            unlink(exchange.building().c_str());
            Complain("cannot make a new %s: %s", kind.file_name, error.c_str());
            result->exit_code = kExitFiles;
            return false;
        }
        if (StampOf(exchange.file()) == before) return true;
    }
    unlink(exchange.building().c_str());
    Complain("%s is being written by another program", kind.file_name);
    result->exit_code = kExitDatabase;
    return false;
}

}  // namespace

RepairResult RepairDatabase(const std::string& directory, const host::DatabaseKind& kind,
                            const host::DatabaseFault& fault) {
    RepairResult result{.name = kind.file_name, .fault = fault};
    host::DatabaseExchange exchange(directory + "/" + kind.file_name);
    const std::unique_ptr<host::RepairLock> lock = host::RepairLock::Take(exchange.file());
    if (lock == nullptr) {
        Complain("cannot lock %s: %s", directory.c_str(),
                 errno == EWOULDBLOCK ? "another repair is at work" : strerror(errno));
        result.exit_code = kExitDatabase;
        return result;
    }
    if (!exchange.IsDecided() && !Build(exchange, kind, &result)) return result;
    result.is_mended = exchange.Decide() && exchange.CarryOut();
    result.set_aside = exchange.set_aside();
    if (result.is_mended) return result;
    Complain("cannot put the new %s in place: %s", kind.file_name, exchange.error().c_str());
    result.exit_code = kExitFiles;
    return result;
}

}  // namespace koli::ctl
