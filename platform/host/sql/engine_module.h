// An engine in a module of its own, loaded when the settings name it.
#pragma once

#include <memory>
#include <string>

#include "platform/host/sql/database_engine.h"

namespace koli::host {

/// What such a module exports as `koli_engine_module`.
struct EngineModule {
    const char* version;  ///< of the program that it belongs to: what both share is the same in no other
    /// The engine of a place in its settings' words; null, with a sentence why, when these make no sense.
    std::unique_ptr<DatabaseEngine> (*make)(const std::string& place, const std::string& library,
                                            std::string* error);
};

}  // namespace koli::host

extern "C" [[gnu::visibility("default")]] const koli::host::EngineModule koli_engine_module;
