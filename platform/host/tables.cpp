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

std::string SaveText(const std::string& table, const std::vector<const char*>& columns) {
    std::string names, parameters, assignments, own, excluded;
    for (size_t i = 0; i < columns.size(); ++i) {
        const std::string column = columns[i], comma = i > 0 ? ", " : "", between = i > 1 ? ", " : "";
        names += comma + column;
        parameters += comma + "?" + std::to_string(i + 1);
        if (i == 0) continue;  // the key
        assignments += between + column + " = excluded." + column;
        own += between + table + "." + column;
        excluded += between + "excluded." + column;
    }
    return "INSERT INTO " + table + " (" + names + ") VALUES (" + parameters + ") ON CONFLICT (" +
           columns[0] + ") DO UPDATE SET " + assignments + " WHERE (" + own + ") IS DISTINCT FROM (" +
           excluded + ")";
}

}  // namespace koli::host

using namespace koli::host;

extern "C" int KOLITableDatabase(const char* table) {
    if (table == nullptr) return 0;
    if (IsOneOf(table, kMediaTables)) return KOLI_MEDIA_DB;
    return IsOneOf(table, kPhotoTables) ? KOLI_PHOTO_DB : 0;
}
