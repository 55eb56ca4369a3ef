// What a failed look at a path says.
#pragma once

#include <cerrno>

namespace koli {

/// True when the errno of a look at a path tells for certain that nothing is there; all others tell nothing.
inline bool MeansAbsent(int error) {
    return error == ENOENT || error == ENOTDIR;
}

}  // namespace koli
