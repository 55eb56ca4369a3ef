// All pages of the library by their addresses.
#pragma once

#include "tools/serve/page/visit.h"

namespace koli::serve {

/// The page at the visit's address, or the one that says why there is none.
Reply SitePage(const Visit& visit);

}  // namespace koli::serve
