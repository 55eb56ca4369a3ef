// The servers that libpq's settings name, one by one: libpq itself would stay at one that does not answer,
// and ask for the addresses of names as long as the resolver likes.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace koli::host {

/// What libpq is told: pairs, of which a later one of the same name wins.
using Settings = std::vector<std::pair<std::string, std::string>>;

std::string ValueOf(const Settings& settings, const char* name);  ///< '' = it is not given

/// The settings of each server and of each address that it has, in their order.  Names are looked up by a
/// process of its own, within `ms`.  None, with the reason, when there is no address.
std::vector<Settings> ServersOf(const Settings& settings, int64_t ms, std::string* reason);

}  // namespace koli::host
