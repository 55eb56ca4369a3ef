#include "platform/host/library_copy.h"

#include <memory>

#include "platform/host/database_copy.h"
#include "platform/host/tables.h"

namespace koli::host {
namespace {

constexpr const char kGetMark[] = "SELECT value FROM setting WHERE name = ?1";
constexpr const char kDropMark[] = "DELETE FROM setting WHERE name = ?1";

/// Both databases of a place.
struct Connections {
    std::unique_ptr<Sql> media, photo;
    std::unique_ptr<Sql>& Of(int database) { return database == KOLI_MEDIA_DB ? media : photo; }
};

class Copier {
  public:
    Copier(const DatabaseEngine& from, const DatabaseEngine& to, const CopyWatcher& watch)
        : from_(from), to_(to), watch_(watch) {}

    LibraryCopied Run() {
        result_.is_refused = true;
        if (!IsIdle(from_) || !IsIdle(to_) || !OpenSource() || !IsSourceWhole() || !OpenTarget() ||
            !IsTargetOurs())
            return std::move(result_);
        result_.is_refused = false;
        if (!SetMark()) return std::move(result_);
        for (const int database : kDatabases)
            if (!CopyDatabase(database)) return std::move(result_);
        Sql& photo = *target_.photo;
        const bool is_done = photo.Run(photo.Kept(kDropMark)->Fill(kCopyMark)) >= 0 && photo.Harden();
        if (!is_done) Fail(to_, KOLI_PHOTO_DB, photo.failure());
        return std::move(result_);
    }

  private:
    bool Fail(const DatabaseEngine& engine, int database, const SqlFailure& failure) {
        result_.error = engine.PlaceOf(database) + ": " + failure.reason;
        return false;
    }
    bool Refuse(const std::string& reason) {
        result_.error = reason;
        return false;
    }

    bool IsIdle(const DatabaseEngine& engine) {
        for (const int database : kDatabases) {
            SqlFailure failure;
            if (engine.IsWritten(database, &failure))
                return Refuse("a daemon writes to " + engine.place() + ": stop it first");
            if (!failure.reason.empty()) return Fail(engine, database, failure);
        }
        return true;
    }

    bool OpenSource() {
        for (const int database : kDatabases) {
            SqlFailure failure;
            source_.Of(database) = from_.OpenToRead(database, &failure);
            if (!failure.reason.empty()) return Fail(from_, database, failure);
        }
        return source_.media != nullptr || source_.photo != nullptr ||
               Refuse("there is no library in " + from_.place());
    }

    bool OpenTarget() {
        for (const int database : kDatabases) {
            SqlFailure failure;
            target_.Of(database) = to_.Open(database, nullptr, &failure);
            if (target_.Of(database) == nullptr) return Fail(to_, database, failure);
            target_rows_.Of(database) = to_.OpenToRead(database, &failure);
            if (target_rows_.Of(database) == nullptr) return Fail(to_, database, failure);
        }
        return true;
    }

    /// Empty, or begun by a copy from the same place.
    bool IsTargetOurs() {
        std::string mark;
        if (!ReadMark(to_, *target_.photo, &mark)) return false;
        if (!mark.empty())
            return mark == from_.place() || Refuse(to_.place() + " holds a part of a copy of " + mark);
        for (const int database : kDatabases)
            for (const char* table : TablesOf(database))
                if (!IsEmpty(database, table)) return false;
        return true;
    }
    bool IsEmpty(int database, const char* table) {
        const auto row = target_.Of(database)->Query(std::string("SELECT 1 FROM ") + table + " LIMIT 1");
        if (row == nullptr) return Fail(to_, database, target_.Of(database)->failure());
        return row->count() == 0 || Refuse(to_.place() + " holds a library already");
    }
    bool IsSourceWhole() {
        std::string mark;
        if (source_.photo != nullptr && !ReadMark(from_, *source_.photo, &mark)) return false;
        return mark.empty() || Refuse(from_.place() + " holds a part of a copy of " + mark);
    }
    bool ReadMark(const DatabaseEngine& engine, Sql& photo, std::string* mark) {
        if (photo.Columns(kSettingTable).empty()) return true;  // an older program's
        SqlStatement* const query = photo.Kept(kGetMark);
        const auto found = query != nullptr ? photo.Query(query->Fill(kCopyMark)) : nullptr;
        if (found == nullptr) return Fail(engine, KOLI_PHOTO_DB, photo.failure());
        if (found->count() > 0) *mark = found->Field(0, "value");
        return true;
    }

    bool SetMark() {
        Sql& photo = *target_.photo;
        SqlStatement* const save = photo.KeptSave(SettingForm());
        const bool is_set =
            save != nullptr && photo.Run(save->Fill(kCopyMark, from_.place())) >= 0 && photo.Harden();
        return is_set || Fail(to_, KOLI_PHOTO_DB, photo.failure());
    }

    bool CopyDatabase(int database) {
        if (source_.Of(database) == nullptr) return true;
        DatabaseCopy copy(*source_.Of(database), *target_.Of(database), *target_rows_.Of(database), watch_,
                          &result_);
        if (copy.Run(database)) return true;
        result_.error = std::string(DatabaseName(database)) + ": " + result_.error;
        return false;
    }

    const DatabaseEngine& from_;
    const DatabaseEngine& to_;
    const CopyWatcher& watch_;
    Connections source_, target_, target_rows_;
    LibraryCopied result_;
};

}  // namespace

LibraryCopied LibraryCopy(const DatabaseEngine& from, const DatabaseEngine& to, const CopyWatcher& watch) {
    return Copier(from, to, watch).Run();
}

}  // namespace koli::host
