// The one way to the system log.
//
// Every line begins with the name of the module that writes it and the line number of the call; the modules
// use several prefix forms side by side ("%s (%d) ", "%s:%d ", ...), so the whole text, prefix included,
// stands at the call.  A file names its module once, at its top:
//
//     namespace { constexpr const char kModule[] = "music"; }
//     ...
//     KOLI_LOG("%s (%d) Failed to remove [%s] from database", path);
#pragma once

namespace koli {

/// Writes one line to the system log at priority LOG_ERR.  Names from the file system go into it as they are:
/// a system log keeps one datagram one entry and escapes control characters itself.  errno stays as it is.
void LogError(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// The same at priority LOG_NOTICE: worth knowing, but nothing has failed.
void LogNotice(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Takes the finished lines of LogError in a process that has no connection to the system log (the child of a
/// guarded probe).  Null, as in the daemon itself: they go to the system log.
using LogSink = void (*)(const char* line);
extern LogSink log_sink;
inline constexpr int kLogSinkLineSize = 5120;  // bytes; longer lines are cut: a path and its message fit

/// Where a message comes from, for helpers that log in the name of the module that called them:
/// `LogSite(kModule)` holds the caller's module name and line.  `module` is a string literal, not owned.
struct LogSite {
    explicit LogSite(const char* module_name, int line_number = __builtin_LINE())
        : module(module_name), line(line_number) {}
    const char* module;
    int line;
};

}  // namespace koli

/// Logs `format`, whose first two conversions ("%s" and "%d") are filled with the module name and the line.
#define KOLI_LOG(format, ...) ::koli::LogError(format, kModule, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
