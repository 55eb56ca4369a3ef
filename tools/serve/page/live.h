// The part of a page that shows the daemon at work.
#pragma once

#include "tools/serve/page/visit.h"

namespace koli::serve {

/// The script asks for it again while somebody looks.
void AddLive(const Visit& visit, Markup& to);

/// Why a batch is kept.
std::string KeptText(const ctl::BatchState& batch);

}  // namespace koli::serve
