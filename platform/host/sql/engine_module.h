// An engine in a module of its own, loaded when the settings name it.
#pragma once

#include <memory>
#include <string>

#include "platform/host/sql/database_engine.h"
#include "platform/host/sql/server_setup.h"

namespace koli::host {

/// A library on a server, in its settings' words.
struct ServerPlace {
    std::string conninfo;
    std::string library;
    std::string reader = {};  // the role for whoever only looks, '' = that of the conninfo
};

/// What such a module exports as `koli_engine_module`.
struct EngineModule {
    const char* version;  ///< of the program that it belongs to: what both share is the same in no other
    /// The engine of a place; null, with a sentence why, when its words make no sense.
    std::unique_ptr<DatabaseEngine> (*make)(const ServerPlace& place, std::string* error);
    /// Looks what the place lacks, for an administrator's conninfo, and makes it if `is_to_make`.
    ServerPlan (*set_up)(const ServerPlace& place, bool is_to_make);
};

}  // namespace koli::host

extern "C" [[gnu::visibility("default")]] const koli::host::EngineModule koli_engine_module;
