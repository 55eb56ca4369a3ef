// What concerns whole tables and whole databases.
#include <cstring>
#include <iterator>
#include <string>

#include "base/log.h"
#include "platform/host/database_groups.h"
#include "platform/host/guard.h"
#include "platform/host/problems.h"
#include "platform/host/schema.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"

namespace koli::host {
namespace {

constexpr const char kModule[] = "kolidb";

template <size_t N>
bool IsOneOf(const char* name, const char* const (&tables)[N]) {
    for (const char* table : tables)
        if (strcmp(name, table) == 0) return true;
    return false;
}

/// The database that has the table; null for none.
Database* DatabaseOf(const char* table) {
    if (IsOneOf(table, kMediaTables)) return &MediaDatabase();
    return IsOneOf(table, kPhotoTables) ? &PhotoDatabase() : nullptr;
}

}  // namespace
}  // namespace koli::host

using namespace koli::host;

extern "C" {

int KOLITruncateTable(const char* table) {
    Database* database = table != nullptr ? DatabaseOf(table) : nullptr;
    if (database == nullptr) {
        KOLI_LOG("%s (%d) No such table [%s].", table != nullptr ? table : "");
        return -1;
    }
    return Guarded(*database, [=] {
        if (database == &MediaDatabase()) ProblemForgetTable(table);
        return database->Execute(std::string("DELETE FROM ") + table) >= 0 ? 0 : -1;
    });
}

int MediaDBVacuum(void) {
    return Guarded(MediaDatabase(), [&] { return MediaDatabase().Vacuum(); });
}

int PhotoDBVacuum(void) {
    return Guarded(PhotoDatabase(), [&] { return PhotoDatabase().Vacuum(); });
}

}  // extern "C"
