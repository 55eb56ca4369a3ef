// The process that has small pictures made: it takes orders from the server and forks a child for each.  It
// is forked before the server has threads, which no child could be forked beside, and never looks at a
// picture itself.
#pragma once

#include <sys/types.h>

#include <chrono>

#include "tools/serve/picture/maker_channel.h"

namespace koli::serve {

struct MakerSettings {
    std::chrono::seconds child_limit{20};  // by the clock: a disk may not answer
};

/// In the server, before its first thread: forks the maker, which ends with the server, or when that closes
/// the other end of `socket`.  Returns its pid; -1 with errno set, ENOSYS when this kernel has neither of the
/// mechanisms that would guard a child.
pid_t MakerStart(int socket, const PictureSlots& slots, const MakerSettings& settings);

}  // namespace koli::serve
