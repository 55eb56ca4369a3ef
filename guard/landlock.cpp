#include "guard/landlock.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <iterator>

namespace koli {
namespace {

// The kernel's interface (include/uapi/linux/landlock.h), spelt out here because the headers of a build
// machine are older than the kernels that the daemon meets.  The kernel takes a longer structure than it
// knows as long as the rest is zero.
struct RulesetAttributes {
    uint64_t handled_access_fs;
    uint64_t handled_access_net;
    uint64_t scoped;
};
struct [[gnu::packed]] PathBeneathAttributes {
    uint64_t allowed_access;
    int32_t parent_fd;
};
constexpr uint32_t kCreateRulesetVersion = 1;
constexpr int kRulePathBeneath = 1;
constexpr uint64_t kExecute = 1, kWriteFile = 2, kReadFile = 4, kReadDir = 8;
constexpr uint64_t kNetBindAndConnectTcp = 3;    // since ABI 4
constexpr uint64_t kScopeSocketsAndSignals = 3;  // since ABI 6

/// Bits of handled_access_fs by ABI: 2 adds linking across directories, 3 truncation, 5 device ioctls.
constexpr unsigned kFileAccessBits[] = {0, 13, 14, 15, 15, 16};

/// Everything that this ABI can refuse.
RulesetAttributes Everything(int abi) {
    const int newest_known = static_cast<int>(std::size(kFileAccessBits)) - 1;
    const unsigned bits = kFileAccessBits[std::min(abi, newest_known)];
    return {(uint64_t{1} << bits) - 1, abi >= 4 ? kNetBindAndConnectTcp : 0,
            abi >= 6 ? kScopeSocketsAndSignals : 0};
}

/// Lets `path` be written to.
bool AllowWriting(int ruleset, const char* path) {
    const int file = open(path, O_PATH | O_CLOEXEC);
    if (file < 0) return false;
    const PathBeneathAttributes rule{kWriteFile, file};
    const bool result = syscall(SYS_landlock_add_rule, ruleset, kRulePathBeneath, &rule, 0) == 0;
    const int reason = errno;
    close(file);
    errno = reason;
    return result;
}

bool Enter(const RulesetAttributes& attributes, const char* writable) {
    const auto ruleset =
        static_cast<int>(syscall(SYS_landlock_create_ruleset, &attributes, sizeof attributes, 0));
    if (ruleset < 0) return false;
    const bool result = (writable == nullptr || AllowWriting(ruleset, writable)) &&
                        syscall(SYS_landlock_restrict_self, ruleset, 0) == 0;
    const int reason = errno;
    close(ruleset);
    errno = reason;
    return result;
}

}  // namespace

int LandlockAbi() {
    const auto abi = syscall(SYS_landlock_create_ruleset, nullptr, size_t{0}, kCreateRulesetVersion);
    return abi > 0 ? static_cast<int>(abi) : 0;
}

bool LandlockAllowNothing(int abi) {
    // No rule: a rule's path may have become a folder, or a link to one, with all that is below it.
    return Enter(Everything(abi), nullptr);
}

bool LandlockRefuseWriting(int abi) {
    RulesetAttributes attributes = Everything(abi);
    attributes.handled_access_fs &= ~(kExecute | kReadFile | kReadDir);
    return Enter(attributes, "/dev/null");
}

}  // namespace koli
