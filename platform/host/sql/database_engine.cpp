#include "platform/host/sql/database_engine.h"

#include "platform/kolidb.h"

namespace koli::host {

const char* DatabaseName(int database) {
    return database == KOLI_MEDIA_DB ? "media.db" : "photo.db";
}

const char* DatabaseStateName(DatabaseState state) {
    constexpr const char* kNames[] = {"sound",         "not created yet",      "damaged",
                                      "not permitted", "of an unknown schema", "locked",
                                      "not readable"};
    return kNames[static_cast<size_t>(state)];
}

}  // namespace koli::host
