#include "platform/host/tables.h"

#include <cstring>

#include "platform/kolidb.h"
#include "platform/koliindex.h"

namespace koli::host {
namespace {

template <size_t N>
bool IsOneOf(const char* name, const char* const (&tables)[N]) {
    for (const char* table : tables)
        if (strcmp(name, table) == 0) return true;
    return false;
}

}  // namespace
}  // namespace koli::host

using namespace koli::host;

extern "C" int KOLITableDatabase(const char* table) {
    if (table == nullptr) return 0;
    if (IsOneOf(table, kMediaTables)) return KOLI_MEDIA_DB;
    return IsOneOf(table, kPhotoTables) ? KOLI_PHOTO_DB : 0;
}
