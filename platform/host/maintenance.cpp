// What concerns whole tables and whole databases.
#include <string>

#include "base/log.h"
#include "platform/host/database_groups.h"
#include "platform/host/guard.h"
#include "platform/host/problems.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"

namespace koli::host {
namespace {

constexpr const char kModule[] = "kolidb";

}  // namespace
}  // namespace koli::host

using namespace koli::host;

extern "C" {

int KOLITruncateTable(const char* table) {
    const int id = KOLITableDatabase(table);
    if (id == 0) {
        KOLI_LOG("%s (%d) No such table [%s].", table != nullptr ? table : "");
        return -1;
    }
    Database& database = id == KOLI_MEDIA_DB ? MediaDatabase() : PhotoDatabase();
    return Guarded(database, [&database, id, table] {
        if (id == KOLI_MEDIA_DB) ProblemForgetTable(table);
        return database.Execute(std::string("DELETE FROM ") + table) >= 0 ? 0 : -1;
    });
}

int MediaDBVacuum(void) {
    return Guarded(MediaDatabase(), [&] {
        ProblemSettle();
        return MediaDatabase().Vacuum();
    });
}

int PhotoDBVacuum(void) {
    return Guarded(PhotoDatabase(), [&] { return PhotoDatabase().Vacuum(); });
}

}  // extern "C"
