// What keeps the two databases: which engine it is, and what it does with a database as a whole.
//
// A database is KOLI_MEDIA_DB or KOLI_PHOTO_DB (kolidb.h).
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/host/sql/sql.h"
#include "platform/kolidb.h"

namespace koli::host {

inline constexpr int kDatabases[] = {KOLI_MEDIA_DB, KOLI_PHOTO_DB};

/// Its name for people and programs: "media.db", "photo.db".
const char* DatabaseName(int database);

enum class DatabaseState : size_t {
    kSound,
    kMissing,        // not created yet
    kDamaged,        // a part of its schema is missing, or it cannot be read: repair mends it
    kNotPermitted,   // this user may not read it
    kUnknownSchema,  // made by a newer version, or another program's
    kLocked,         // by another program
    kUnreadable      // anything else: the disk, no memory
};

/// One word, or some, for people and programs: "sound", "damaged", "not permitted" ...
const char* DatabaseStateName(DatabaseState state);

struct DatabaseFault {
    DatabaseState state = DatabaseState::kSound;
    std::string reason = {};  // '' for kSound and kMissing
};

enum class DatabaseCheck {
    kQuick,    // the schema, the first row of every table, and the numbers of rows
    kThorough  // every byte and every index, too
};

/// What a look at a database finds.
struct DatabaseView {
    DatabaseFault fault = {};
    std::vector<std::pair<std::string, int64_t>> counts = {};  // rows of each table that can be counted
    time_t changed = 0;                                        // last written, 0 = never
    bool is_repair_begun = false;  // a killed repair has left one that only has to be carried out
};

struct SalvagedTable {
    std::string name;
    int64_t rows = 0;   // saved
    int64_t found = 0;  // of them where rows no longer belong to any table
};

/// What was saved of a damaged database.
struct Salvage {
    std::vector<SalvagedTable> tables = {};
    int64_t lost_pages = 0;      // pieces of the tables that cannot be read
    int64_t lost_rows = 0;       // rows elsewhere that cannot be read, or belong to nothing
    bool lost_contents = false;  // a table, or the list of all tables, is gone
    int64_t private_albums = 0;  // made for folders whose album was lost
    std::string error = {};      // why the new database could not be made; '' = it was

    bool IsWhole() const { return lost_pages == 0 && lost_rows == 0 && !lost_contents; }
};

struct Repair {
    bool is_mended = false;
    std::string set_aside = {};  // where the damaged database is kept
    Salvage salvage = {};        // not known of a repair that an earlier one has begun
    std::string error = {};      // a line for people; '' = it is mended
    bool is_refused = false;     // it must not be touched now; else it could not be written
};

/// The names of the albums that there should be, each behind the one that it lies in.
using AlbumNames = std::function<std::vector<std::string>()>;

class DatabaseEngine {
  public:
    virtual ~DatabaseEngine() = default;
    DatabaseEngine(const DatabaseEngine&) = delete;
    DatabaseEngine& operator=(const DatabaseEngine&) = delete;

    virtual const std::string& place() const = 0;         ///< of both databases, for people
    virtual std::string PlaceOf(int database) const = 0;  ///< of the one
    /// Whether they are files in place(): else a server has them, and who may do what is its own to say.
    virtual bool IsInFiles() const = 0;

    /// For whoever is about to open or to write it: false, with the reason, while a repair is at work, which
    /// passes.  A repair that was left half-way is carried out first.  Cheap.
    virtual bool IsFree(int database, std::string* reason) const = 0;

    /// Opens it to write, created and with all its tables; null on failure.
    virtual std::unique_ptr<Sql> Open(int database, Sql::ChangeListener changed,
                                      SqlFailure* failure) const = 0;

    /// Opens it to read, beside whoever writes.  Null on failure, and without a reason when it has not been
    /// created yet.
    virtual std::unique_ptr<Sql> OpenToRead(int database, SqlFailure* failure) const = 0;

    /// Looks at it without changing anything.  Not for a process that has it open: it would lose its locks.
    virtual DatabaseView Look(int database, DatabaseCheck check) const = 0;

    /// True when its rows are those of all libraries that the place keeps, with a column `library` in front;
    /// such a one is only read.
    virtual bool HasEveryLibrary() const { return false; }
    /// Their names; none where there is one without a name, and on failure.
    virtual std::vector<std::string> Libraries(SqlFailure*) const { return {}; }
    /// Whether a daemon, wherever it runs, has it open to write, as far as that can be told.
    virtual bool IsWritten(int, SqlFailure*) const { return false; }

    /// Whether it was told a password.
    virtual bool HoldsPassword() const { return false; }

    /// Puts a new database with the rows that can be read in the place of the damaged one, or carries out
    /// what a killed repair has left.  An album that was lost would be made anew as the settings say, perhaps
    /// for everybody to see: when something is lost, each of `albums` that was not saved is made a private
    /// one.
    virtual Repair Mend(int database, const AlbumNames& albums) const = 0;

  protected:
    DatabaseEngine() = default;
};

}  // namespace koli::host
