// "serve --once": the same pages as files.
#pragma once

#include <functional>
#include <string>

#include "tools/serve/library/library.h"
#include "tools/serve/picture/pictures.h"

namespace koli::serve {

/// Writes all pages and small pictures into `folder`, which must be empty or not there: it appears whole, by
/// a rename, or not at all, and nothing is left of what is not whole.  Sounds and films are not copied: the
/// pages name where they lie.  False and why in `error` when that fails, or when `is_wanted`, which is asked
/// before each file, says no.
bool KeepSite(const Library& library, Pictures& pictures, const std::string& folder,
              const std::function<bool()>& is_wanted, std::string* error);

}  // namespace koli::serve
