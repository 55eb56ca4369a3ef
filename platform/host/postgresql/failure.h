// What a server's errors mean.
#pragma once

#include <string>
#include <string_view>

#include "platform/host/sql/sql.h"

namespace koli::host {

/// The server is out of reach, or what it says makes no sense: the connection has to be made anew.
SqlFailure LostFailure(std::string reason);

/// A statement's failure by its five letters; `message` is the server's.
SqlFailure ServerFailure(std::string_view state, std::string message);

}  // namespace koli::host
