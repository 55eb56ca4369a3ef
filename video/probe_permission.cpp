#include "video/probe_permission.h"

#include <strings.h>

#include <cerrno>

#include "base/log.h"
#include "base/passing_error.h"
#include "platform/kolisdk.h"
#include "platform/paths.h"

namespace koli {
namespace {

constexpr const char kModule[] = "metamedia";

}  // namespace

bool ProbeGuardSuffices(const ProbeGuardStatus& status) {
    errno = 0;
    if (status.system_call_filter || status.file_rules) return true;
    char value[8];
    if (KLIBFileGetKeyValue(paths::kConfig, "unguardedprobe", value, sizeof value, 0) < 0)
        return errno == 0 || !IsPassingError(errno);
    errno = 0;
    return strcasecmp(value, "no") != 0;
}

void ProbeGuardReport() {
    ProbeGuardPrepare();
    const ProbeGuardStatus status = ProbeGuardStatusGet();
    if (status.system_call_filter && status.file_rules) return;
    LogNotice(LogSite(kModule), "Media is %sprobed without%s%s: this kernel lacks it.",
              ProbeGuardSuffices(status) ? "" : "not ", status.system_call_filter ? "" : " [seccomp]",
              status.file_rules ? "" : " [Landlock]");
}

}  // namespace koli
