#include "tools/ctl/copy_database.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include "platform/host/engine_choice.h"
#include "platform/host/library_copy.h"
#include "tools/ctl/copy_progress.h"
#include "tools/ctl/output.h"
#include "tools/ctl/request_writer.h"
#include "tools/ctl/store_reader.h"

namespace koli::ctl {
namespace {

constexpr const char kOnServer[] = "postgresql:";

/// Null, after a complaint, when the place makes no sense.
std::unique_ptr<host::DatabaseEngine> EngineFor(std::string place, const std::string& library) {
    const bool is_on_server = place.starts_with(kOnServer);
    while (!is_on_server && place.ends_with("/"))
        place.pop_back();
    host::SqlFailure failure;
    auto engine = host::EngineAt(place, is_on_server ? library : "", &failure);
    if (engine == nullptr) {
        const bool is_unknown = !is_on_server && !place.starts_with("sqlite:/");
        Complain("%s",
                 is_unknown ? "a place is sqlite:DIRECTORY or postgresql:CONNINFO" : failure.reason.c_str());
    } else if (engine->HoldsPassword()) {
        Complain("everybody can read a command line: the password belongs in ~/.pgpass, or in PGPASSWORD");
        engine.reset();
    } else if (engine->HasEveryLibrary()) {
        Complain("one library is copied at a time");
        engine.reset();
    }
    return engine;
}

/// The daemon of this machine has a place open only now and then: the settings tell which one is its own.
bool IsDaemonsOwn(const Context& context, const host::DatabaseEngine& engine) {
    std::string error;
    const auto own = EngineOf(context.places, &error);
    return DaemonPid(context.places.pid_file) > 0 && own != nullptr && own->place() == engine.place();
}

void Print(const Context& context, const host::DatabaseEngine& from, const host::DatabaseEngine& to,
           const host::LibraryCopied& copied) {
    if (!context.json) {
        RowPrinter rows({"table", "rows", "written", "removed"}, false);
        for (const host::CopiedTable& table : copied.tables)
            rows.Row({table.name, table.rows, table.written, table.removed});
        return;
    }
    Section tables{"tables"}, lost{"lost"};
    for (const host::CopiedTable& table : copied.tables)
        tables.records.push_back({{"table", table.name},
                                  {"rows", table.rows},
                                  {"written", table.written},
                                  {"removed", table.removed}});
    for (const std::string& row : copied.lost)
        lost.records.push_back({{"row", row}});
    PrintObject({{"from", from.place()},
                 {"to", to.place()},
                 {"is_complete", copied.error.empty()},
                 {"lost_rows", copied.lost_rows}},
                {tables, lost});
}

}  // namespace

int CopyDatabase(const Context& context, const CopyOptions& options) {
    const auto from = EngineFor(options.from, options.library);
    const auto to = from != nullptr ? EngineFor(options.to, options.library) : nullptr;
    if (to == nullptr) return kExitUsage;
    for (const host::DatabaseEngine* engine : {from.get(), to.get()})
        if (IsDaemonsOwn(context, *engine)) {
            Complain("the daemon writes to %s: stop it first", engine->place().c_str());
            return kExitDatabase;
        }
    host::LibraryCopied copied;
    {
        CopyProgress progress;
        copied = host::LibraryCopy(*from, *to, [&](const host::CopiedTable& table) { progress.Tell(table); });
    }
    if (!copied.is_refused) Print(context, *from, *to, copied);
    for (const std::string& row : copied.lost)
        Complain("not copied: %s", row.c_str());
    if (!copied.error.empty()) {
        Complain(
            "%s%s", copied.error.c_str(),
            copied.is_refused ? "" : "; what has been copied stays, and the same command goes on with it");
        return kExitDatabase;
    }
    return copied.lost_rows > 0 ? kExitDifferences : kExitDone;
}

}  // namespace koli::ctl
