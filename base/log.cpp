#include "base/log.h"

#include <syslog.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

namespace koli {
namespace {

// By LogForm.
constexpr const char* kForms[] = {"%s (%d) ", "%s:%d ", "%s(%d) ", "%s(%d): ", "(%s, %d) ", ""};

/// The line's format: its beginning, filled in, and the text's.
class Line {
  public:
    Line(LogSite site, const char* format) {
        const int begun =
            snprintf(format_, sizeof format_, kForms[static_cast<int>(site.form)], site.module, site.line);
        snprintf(format_ + begun, sizeof format_ - static_cast<size_t>(begun), "%s", format);
    }
    const char* format() const { return format_; }

  private:
    char format_[1024];  // several times the longest
};

}  // namespace

void LogError(LogSite site, const char* format, ...) {
    const int error = errno;
    const Line whole(site, format);
    errno = error;  // "%m"
    va_list arguments;
    va_start(arguments, format);
    if (log_sink != nullptr) {
        char line[kLogSinkLineSize];
        vsnprintf(line, sizeof line, whole.format(),
                  arguments);  // NOLINT(clang-analyzer-valist.Uninitialized)
        log_sink(line);
    } else {
        vsyslog(LOG_ERR, whole.format(), arguments);
    }
    va_end(arguments);
    errno = error;
}

void LogNotice(LogSite site, const char* format, ...) {
    const Line whole(site, format);
    va_list arguments;
    va_start(arguments, format);
    vsyslog(LOG_NOTICE, whole.format(), arguments);
    va_end(arguments);
}

}  // namespace koli
