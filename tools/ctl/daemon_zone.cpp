#include "tools/ctl/daemon_zone.h"

#include <cstdlib>

#include "tools/ctl/request_writer.h"
#include "tools/ctl/small_file.h"

namespace koli::ctl {

void DaemonZoneTake(const std::string& pid_file) {
    const std::string key("\0TZ=", 4);
    std::string environment;  // NAME=VALUE texts, each with a NUL behind it
    const int pid = DaemonPid(pid_file);
    if (pid <= 0 || !SmallFileRead("/proc/" + std::to_string(pid) + "/environ", &environment)) return;
    environment.insert(0, 1, '\0');
    const size_t at = environment.find(key);
    if (at != std::string::npos)
        setenv("TZ", environment.c_str() + at + key.size(), 1);
    else
        unsetenv("TZ");
}

}  // namespace koli::ctl
