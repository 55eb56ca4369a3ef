// The machine's setting for what works ahead of a walk.
#pragma once

#include "platform/kolisdk.h"
#include "platform/paths.h"

namespace koli {

/// Reads the setting "runahead": false when it is "no".
inline bool RunAheadIsAllowed() {
    return BlKOLIFileCheckKeyValue(paths::kConfig, "runahead", "no", 0) == 0;
}

}  // namespace koli
