#include "base/passing_error.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace koli {
namespace {

constexpr int kLasting[] = {ENOENT, ENOTDIR,      EACCES, EPERM,  ELOOP,
                            EISDIR, ENAMETOOLONG, EINVAL, ENODEV, ENXIO};

}  // namespace

bool IsPassingError(int error) {
    return std::find(std::begin(kLasting), std::end(kLasting), error) == std::end(kLasting);
}

}  // namespace koli
