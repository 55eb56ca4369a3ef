// The repair of one database file.
#include "platform/host/sqlite/engine.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/host/sqlite/exchange.h"
#include "platform/host/sqlite/look.h"
#include "platform/host/sqlite/salvage.h"
#include "platform/host/sqlite/schema.h"

namespace koli::host {
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

bool Failed(const std::string& error, bool is_refused, Repair* repair) {
    repair->error = error;
    repair->is_refused = is_refused;
    return false;
}

/// Builds the new database; one to which rows were written meanwhile is read again.
bool Build(const DatabaseExchange& exchange, int database, const AlbumNames& albums, Repair* repair) {
    const Schema& schema = SchemaOf(database);
    const std::string name = DatabaseName(database), no_new = "cannot make a new " + name + ": ";
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const std::string before = StampOf(exchange.file());
        repair->salvage = DatabaseSalvage(exchange.file(), exchange.building(), schema,
                                          database == KOLI_PHOTO_DB ? albums : nullptr);
        std::string error = repair->salvage.error;
        if (error.empty())
            error = DatabaseLook(exchange.building(), schema, DatabaseCheck::kThorough).fault.reason;
        if (!error.empty()) {
            unlink(exchange.building().c_str());
            return Failed(no_new + error, false, repair);
        }
        if (StampOf(exchange.file()) == before) return true;
    }
    unlink(exchange.building().c_str());
    return Failed(name + " is being written by another program", true, repair);
}

}  // namespace

Repair SqliteEngine::Mend(int database, const AlbumNames& albums) const {
    Repair repair;
    DatabaseExchange exchange(PlaceOf(database));
    const std::unique_ptr<RepairLock> lock = RepairLock::Take(exchange.file());
    if (lock == nullptr) {
        const char* const reason = errno == EWOULDBLOCK ? "another repair is at work" : strerror(errno);
        Failed("cannot lock " + directory_ + ": " + reason, true, &repair);
    } else if (exchange.IsDecided() || Build(exchange, database, albums, &repair)) {
        repair.is_mended = exchange.Decide() && exchange.CarryOut();
        repair.set_aside = exchange.set_aside();
        const std::string name = DatabaseName(database);
        if (!repair.is_mended)
            Failed("cannot put the new " + name + " in place: " + exchange.error(), false, &repair);
    }
    return repair;
}

}  // namespace koli::host
