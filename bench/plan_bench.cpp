// Prints the query plan of each statement that the photo database runs, as the program itself writes it,
// during a resync and the rename and removal of a folder:
//
//   plan_bench PHOTO      in the sandbox alone
#include <sqlite3.h>

#include <cstdio>
#include <regex>
#include <string>
#include <vector>

#include "base/features.h"
#include "bench/measure.h"
#include "bench/photo_share.h"
#include "index/directory.h"
#include "index/record/index_mode.h"
#include "photo/albums/photo_rename.h"
#include "photo/albums/photo_resync.h"
#include "platform/kolidb.h"

namespace koli::bench {
namespace {

struct Seen {
    sqlite3* db;
    std::string sql;
    std::string shape;  // the text without its literals
};
std::vector<Seen> seen;
bool is_listening = false;

std::string ShapeOf(const std::string& sql) {
    return std::regex_replace(sql, std::regex("'[^']*'"), "'...'");
}

/// Called by the engine when a statement begins.
int Listen(unsigned, void* db, void*, void* text) {
    const std::string sql = static_cast<const char*>(text);
    const std::string verb = sql.substr(0, 6);
    const bool has_plan = verb == "SELECT" || verb == "Select" || verb == "UPDATE" || verb == "DELETE";
    if (!is_listening || !has_plan) return 0;
    std::string shape = ShapeOf(sql);
    for (const Seen& other : seen)
        if (other.shape == shape) return 0;
    seen.push_back({static_cast<sqlite3*>(db), sql, std::move(shape)});
    return 0;
}

/// Called by the engine for each connection that is opened.
int ListenTo(sqlite3* db, char**, const void*) {
    return sqlite3_trace_v2(db, SQLITE_TRACE_STMT, Listen, db);
}

std::string PlanOf(const Seen& statement) {
    sqlite3_stmt* explained = nullptr;
    const std::string sql = "EXPLAIN QUERY PLAN " + statement.sql;
    if (sqlite3_prepare_v2(statement.db, sql.c_str(), -1, &explained, nullptr) != SQLITE_OK)
        Fail(sqlite3_errmsg(statement.db));
    std::string plan;
    while (sqlite3_step(explained) == SQLITE_ROW) {
        const std::string step = reinterpret_cast<const char*>(sqlite3_column_text(explained, 3));
        const bool is_access = step.starts_with("SEARCH") || step.starts_with("SCAN");
        if (is_access) plan += (plan.empty() ? "" : " + ") + step;
    }
    sqlite3_finalize(explained);
    return plan;
}

void PrintPlans(const char* what) {
    is_listening = false;
    for (const Seen& statement : seen)
        printf("  %s: %s: %.100s\n", what, PlanOf(statement).c_str(), statement.shape.c_str());
    seen.clear();
    is_listening = true;
}

void Run(const char* photo) {
    support_photo = 1;
    FillPhotoShare(photo, 2, 5);
    FreshStores();
    is_listening = true;
    PhotoFolderResync(nullptr);
    PhotoFolderResync(nullptr);
    PrintPlans("resync");
    PhotoPathRename("/volume1/photo/Trip", "/volume1/photo/Album 0", 1);
    PrintPlans("rename");
    IndexWalk("/volume1/photo/Trip", kModeDelete, kWalkMediaStore | kWalkPhotoLibrary);
    PrintPlans("remove");
}

}  // namespace
}  // namespace koli::bench

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(koli::bench::ListenTo));
    koli::bench::Run(argv[1]);
    return 0;
}
