#include "base/passing_error.h"

#include <sys/stat.h>

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

bool MayExist(const char* path) {
    struct stat status;
    return stat(path, &status) == 0 || IsPassingError(errno);
}

}  // namespace koli
