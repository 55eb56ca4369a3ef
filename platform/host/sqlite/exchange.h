// Puts a mended database in the place of the damaged one, so that a kill or a power cut at any instant loses
// neither, and the log of the one is never applied to the other.
//
//   1. The new database is built as "photo.db-repair", one file without a log: given up when there is a kill.
//   2. It is renamed to "photo.db-repaired": from here on the exchange is decided, and whoever comes next, a
//      repair or the daemon as it opens the database, carries it out from wherever it was left.
//   3. The damaged database's log is moved aside; its index, shared memory only, is removed.
//   4. The damaged database gets its second name, "photo.db-damaged-20240131T101112Z".
//   5. The new one is renamed over its first name: "photo.db" is there at every instant.
//
// From 1 to 5 the databases' folder is locked (flock), and the daemon opens no database and begins no group
// of writes.  A process that is killed loses its lock.
#pragma once

#include <memory>
#include <string>

namespace koli::host {

/// For whoever is about to open or to write a database: false, with the reason, while a repair is at work on
/// one of its folder, which passes.  An exchange that was left half-way is carried out first.  Costs a few
/// system calls.
bool DatabaseIsFree(const std::string& file, std::string* reason);

/// The databases' folder, locked.
class RepairLock {
  public:
    /// Null when somebody else holds it (for longer than a moment), or the folder cannot be opened; errno
    /// tells.
    static std::unique_ptr<RepairLock> Take(const std::string& file);
    ~RepairLock();
    RepairLock(const RepairLock&) = delete;
    RepairLock& operator=(const RepairLock&) = delete;

  private:
    explicit RepairLock(int fd) : fd_(fd) {}
    int fd_;
};

/// The exchange of one database, under the lock.  Every step may be repeated, and does nothing when it has
/// been done; false: it failed, error() tells why.
class DatabaseExchange {
  public:
    explicit DatabaseExchange(const std::string& file);

    const std::string& file() const { return file_; }  ///< without links: the log lies beside it
    std::string building() const { return file_ + "-repair"; }
    std::string decided() const { return file_ + "-repaired"; }

    bool IsDecided() const;  ///< there is a new database to be put in place

    bool Decide();       ///< 2
    bool SetLogAside();  ///< 3
    bool KeepDamaged();  ///< 4
    bool Replace();      ///< 5

    bool CarryOut();  ///< 3 to 5, when it is decided

    /// Where the damaged database is kept; known once it is decided.
    const std::string& set_aside() const { return set_aside_; }
    const std::string& error() const { return error_; }

  private:
    bool Failed(const char* what);
    bool FindName();
    bool MoveLog();
    bool MoveAside(const std::string& from, const std::string& to);

    std::string file_;
    std::string folder_;
    std::string set_aside_;
    std::string error_;
};

}  // namespace koli::host
