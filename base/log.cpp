#include "base/log.h"

#include <syslog.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

namespace koli {

void LogError(const char* format, ...) {
    const int error = errno;
    va_list arguments;
    va_start(arguments, format);
    if (log_sink != nullptr) {
        char line[kLogSinkLineSize];
        vsnprintf(line, sizeof line, format, arguments);  // NOLINT(clang-analyzer-valist.Uninitialized)
        log_sink(line);
    } else {
        vsyslog(LOG_ERR, format, arguments);
    }
    va_end(arguments);
    errno = error;
}

void LogNotice(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vsyslog(LOG_NOTICE, format, arguments);
    va_end(arguments);
}

}  // namespace koli
