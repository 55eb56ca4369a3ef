// "serve --once": the same pages as files.
#pragma once

#include <string>

#include "tools/serve/library/library.h"
#include "tools/serve/picture/pictures.h"

namespace koli::serve {

/// Writes all pages and small pictures into `folder`, which must be empty or not there: it appears whole, by
/// a rename, or not at all.  Sounds and films are not copied: the pages name where they lie.  False and why
/// in `error` when that fails.
bool KeepSite(const Library& library, Pictures& pictures, const std::string& folder, std::string* error);

}  // namespace koli::serve
