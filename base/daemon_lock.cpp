#include "base/daemon_lock.h"

#include <unistd.h>

namespace koli {

int daemon_lock_fd = -1;

void DaemonLockClose() {
    if (daemon_lock_fd >= 0) close(daemon_lock_fd);
    daemon_lock_fd = -1;
}

}  // namespace koli
