#include "base/known_path.h"

#include <cerrno>

#include "base/foothold.h"
#include "base/passing_error.h"

namespace koli {
namespace {

PathKind KindOf(mode_t mode) {
    if (S_ISREG(mode)) return PathKind::kFile;
    return S_ISDIR(mode) ? PathKind::kDirectory : PathKind::kOther;
}

}  // namespace

KnownPath::KnownPath(const char* path, unsigned char type) : path_(path), type_(type) {}

PathKind KnownPath::kind() const {
    if (!has_looked_ && type_ != DT_UNKNOWN && type_ != DT_LNK) return KindOf(DTTOIF(type_));
    if (const struct stat* found = status(); found != nullptr) return KindOf(found->st_mode);
    return MeansAbsent(errno) ? PathKind::kAbsent : PathKind::kUnknown;
}

const struct stat* KnownPath::status() const {
    if (!has_looked_) Look();
    errno = error_;
    return error_ == 0 ? &status_ : nullptr;
}

const struct stat* KnownPath::file() const {
    const struct stat* found = status();
    return found != nullptr && S_ISREG(found->st_mode) ? found : nullptr;
}

void KnownPath::Look() const {
    has_looked_ = true;
    error_ = path_ == nullptr ? ENOENT : StatNear(path_, &status_) == 0 ? 0 : errno;
}

}  // namespace koli
