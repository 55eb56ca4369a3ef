// The daemon's two databases, for commands.
#pragma once

#include <memory>
#include <string>

#include "platform/host/database_reader.h"
#include "tools/ctl/context.h"

namespace koli::ctl {

using host::FirstKeyBelow;
using host::KeyBehind;

/// As the name of a library: all of them.
inline constexpr const char kEveryLibrary[] = "*";

/// What keeps the databases; null with the reason in `*error`.
std::unique_ptr<host::DatabaseEngine> EngineOf(const Places& places, std::string* error);

class StoreReader : public host::DatabaseReader {
  public:
    /// False when there is a database that cannot be read, or no telling where the databases are; error()
    /// tells why.
    bool Open(const Places& places);

    /// False for a library that was asked for by name: its files may be another machine's.
    bool IsOfMachine() const { return is_of_machine_; }

    /// What has failed so far, and what would help; "" = nothing.
    std::string error() const;

  private:
    std::string folder_;  // of the databases, '' = a server has them
    std::string engine_error_;
    bool is_of_machine_ = true;
};

/// Opens, and complains in one line when that fails.
bool OpenStore(const Context& context, StoreReader* store);

/// Complains about a database that failed while it was read.  Returns kExitDatabase, or `code` when nothing
/// has failed.
int StoreResult(const StoreReader& store, int code);

/// The same for what was asked of `path` ("" = everything), of which `has_rows` tells whether something was
/// found: complains, and returns kExitDifferences, when nothing at all is stored at or below it.
int ResultBelow(const StoreReader& store, const std::string& path, bool has_rows, int code);

}  // namespace koli::ctl
