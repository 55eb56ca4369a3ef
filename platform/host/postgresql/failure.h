// What a server's errors mean.
#pragma once

#include <string>
#include <string_view>

#include "platform/host/sql/sql.h"

namespace koli::host {

/// What a server or its library says, for the log and for people: one line without control characters, cut at
/// a thousand bytes.
std::string OneLine(std::string_view message);

/// The server is out of reach, or what it says makes no sense: the connection has to be made anew.
SqlFailure LostFailure(std::string_view reason);

/// A statement's failure by its five letters; `message` is the server's.
SqlFailure ServerFailure(std::string_view state, std::string_view message);

}  // namespace koli::host
