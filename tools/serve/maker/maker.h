// The process that has small pictures made: it takes orders from the server and forks a child for each, which
// the server, with its threads, cannot.  It never looks at a picture itself.
#pragma once

namespace koli::serve {

/// Takes orders from `socket`, for slots that lie in the memory file `slots`, until the other end is closed.
/// Closes all other descriptors, and gives up every access to files.  Returns the exit status: a
/// MakerExit (tools/serve/picture/maker_channel.h).
int MakerRun(int socket, int slots) noexcept;

}  // namespace koli::serve
