// What every function of the platform that works on a database is wrapped in.
#pragma once

#include <new>
#include <type_traits>

#include "platform/host/database_groups.h"

namespace koli::host {

/// Runs the body of such a function; nothing is thrown out of it.  When memory runs out the database refuses
/// (Database::RefuseForMemory), and the result is -1, null or nothing.
template <typename Body>
std::invoke_result_t<Body> Guarded(Database& database, Body body) noexcept {
    using Result = std::invoke_result_t<Body>;
    try {
        return body();
    } catch (const std::bad_alloc&) {
        database.RefuseForMemory();
    }
    if constexpr (std::is_pointer_v<Result>)
        return nullptr;
    else if constexpr (!std::is_void_v<Result>)
        return -1;
}

}  // namespace koli::host
