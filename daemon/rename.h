// The request N: a file or directory was moved.
#pragma once

#include "daemon/requests.h"

namespace koli {

/// Moves what both stores hold for the second path of the argument to the first one.
///
/// The media store's rows are taken from the disk: those of the old path go when it is gone, and are stored
/// anew when something stands there.  The photo library's rows hold what people have typed in, so they are
/// moved, and stay where they are when the line may not mean what it says: when something stands at its old
/// path and the end of the line is missing, or more paths follow, or the old path is that of the whole share.
void RequestRename(RequestArgument argument);

}  // namespace koli
