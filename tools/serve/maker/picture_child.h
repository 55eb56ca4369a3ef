// The child that looks at one picture.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include "tools/serve/picture/maker_channel.h"

namespace koli::serve {

/// What a child may use up.
struct PictureLimits {
    rlim_t address_space;        // bytes, with what the process had before
    rlim_t processor_time = 10;  // seconds
};

/// What the child of `parent` does: gives up everything but the descriptor `file`, and leaves a small picture
/// of what that holds in `slot`.  Needs ProbeGuardPrepare() in the parent.  Returns its exit status, a
/// PictureAnswer::Result.
int PictureMakeInChild(PictureSlot& slot, int file, int side, const PictureLimits& limits,
                       pid_t parent) noexcept;

}  // namespace koli::serve
