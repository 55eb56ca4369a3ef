// The one way to the system log.
//
// Every line begins with the name of the module that writes it and the line number of the call, in one of a
// few forms that other programs look for.  A file names its module once, at its top:
//
//     namespace { constexpr const char kModule[] = "music"; }
//     ...
//     KOLI_LOG("Failed to remove [%s] from database", path);
#pragma once

namespace koli {

/// How a line begins.
enum class LogForm : unsigned char {
    kSpaced,      // "music (12) "
    kColon,       // "music:12 "
    kTight,       // "music(12) "
    kTightColon,  // "music(12): "
    kPair,        // "(music, 12) "
    kBare         // with the text
};

/// Where a message comes from, for helpers that log in the name of the module that called them:
/// `LogSite(kModule)` holds the caller's module name and line.  `module` is a string literal, not owned.
struct LogSite {
    explicit LogSite(const char* module_name, LogForm its_form = LogForm::kSpaced,
                     int line_number = __builtin_LINE())
        : module(module_name), line(line_number), form(its_form) {}
    LogSite As(LogForm other) const { return LogSite(module, other, line); }
    const char* module;
    int line;
    LogForm form;
};

/// A message that is handed to who logs it: its conversions are kTexts "%s" at most, which the compiler sees
/// to.
template <int kTexts>
struct LogText {
    consteval LogText(const char* message) : text(message) {  // NOLINT(google-explicit-constructor)
        int count = 0;
        for (const char* at = message; *at != '\0'; ++at)
            if (*at == '%' && (*++at != 's' || ++count > kTexts)) throw "conversions that nobody fills";
    }
    const char* text;
};

/// Writes one line to the system log at priority LOG_ERR.  Names from the file system go into it as they are:
/// a system log keeps one datagram one entry and escapes control characters itself.  errno stays as it is.
void LogError(LogSite site, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// The same at priority LOG_NOTICE: worth knowing, but nothing has failed.
void LogNotice(LogSite site, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// Takes the finished lines of LogError in a process that has no connection to the system log (the child of a
/// guarded probe).  Null, as in the daemon itself: they go to the system log.
using LogSink = void (*)(const char* line);
extern LogSink log_sink;
inline constexpr int kLogSinkLineSize = 5120;  // bytes; longer lines are cut: a path and its message fit

}  // namespace koli

/// Log a line of this file's module, with or without a blank before the line's number.
#define KOLI_LOG(...) ::koli::LogError(::koli::LogSite(kModule), __VA_ARGS__)
#define KOLI_LOG_COLON(...) ::koli::LogError(::koli::LogSite(kModule, ::koli::LogForm::kColon), __VA_ARGS__)
