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

std::string SaveText(const std::string& table, std::vector<const char*> columns,
                     const std::vector<std::pair<const char*, const char*>>& special) {
    std::string names, parameters, assignments, old_values, new_values;
    const size_t plain = columns.size();
    for (const auto& [column, value] : special)
        columns.push_back(column);
    for (size_t i = 0; i < columns.size(); ++i) {
        const std::string name = columns[i], comma = i > 0 ? ", " : "", between = i > 1 ? ", " : "";
        names += comma + name;
        parameters += comma + "?" + std::to_string(i + 1);
        if (i == 0) continue;  // the key
        const std::string value = i < plain ? "excluded." + name : special[i - plain].second;
        assignments.append(between).append(name).append(" = ").append(value);
        old_values.append(between).append(table).append(".").append(name);
        new_values.append(between).append(value);
    }
    return "INSERT INTO " + table + " (" + names + ") VALUES (" + parameters + ") ON CONFLICT (" +
           columns[0] + ") DO UPDATE SET " + assignments + " WHERE (" + old_values + ") IS DISTINCT FROM (" +
           new_values + ")";
}

}  // namespace koli::host

using namespace koli::host;

extern "C" int KOLITableDatabase(const char* table) {
    if (table == nullptr) return 0;
    if (IsOneOf(table, kMediaTables)) return KOLI_MEDIA_DB;
    return IsOneOf(table, kPhotoTables) ? KOLI_PHOTO_DB : 0;
}
