#include "tools/ctl/store_reader.h"

#include <algorithm>
#include <vector>

#include "platform/host/engine_choice.h"
#include "tools/ctl/membership.h"
#include "tools/ctl/suggestion.h"

namespace koli::ctl {

namespace {

/// Why there is no such library; "" when there is.
std::string LibraryRefusal(const host::DatabaseEngine& engine, const std::string& library) {
    host::SqlFailure failure;
    const std::vector<std::string> names = engine.Libraries(&failure);
    if (!failure.reason.empty()) return "cannot read " + engine.place() + ": " + failure.reason;
    if (library == kEveryLibrary || std::ranges::count(names, library) > 0) return "";
    return "there is no library " + library + DidYouMean(library, names);
}

}  // namespace

std::unique_ptr<host::DatabaseEngine> EngineOf(const Places& places, std::string* error) {
    host::SqlFailure failure;
    std::unique_ptr<host::DatabaseEngine> engine = host::EngineIn(places.databases, &failure, places.library);
    if (engine == nullptr)
        *error = failure.reason;
    else if (!places.library.empty())
        *error = LibraryRefusal(*engine, places.library);
    if (!error->empty()) engine.reset();
    return engine;
}

bool StoreReader::Open(const Places& places) {
    std::unique_ptr<host::DatabaseEngine> engine = EngineOf(places, &engine_error_);
    if (engine == nullptr) return false;
    if (engine->IsInFiles()) folder_ = engine->place();
    is_of_machine_ = places.library.empty();
    return DatabaseReader::Open(std::move(engine));
}

std::string StoreReader::error() const {
    if (!engine_error_.empty()) return engine_error_;
    return DatabaseReader::error() + (is_denied() && !folder_.empty() ? JoinHint(folder_) : "");
}

bool OpenStore(const Context& context, StoreReader* store) {
    if (store->Open(context.places)) return true;
    Complain("%s", store->error().c_str());
    return false;
}

int StoreResult(const StoreReader& store, int code) {
    const std::string error = store.error();
    if (error.empty()) return code;
    Complain("%s", error.c_str());
    return kExitDatabase;
}

int ResultBelow(const StoreReader& store, const std::string& path, bool has_rows, int code) {
    const bool is_unknown = !path.empty() && !has_rows && !store.HasRowsAt(path);
    if (const int result = StoreResult(store, code); result != code || !is_unknown) return result;
    Complain("nothing is stored at or below %s", path.c_str());
    return kExitDifferences;
}

}  // namespace koli::ctl
