#include "photo/albums/sql_text.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace koli {
namespace {

SqlText Allocate(size_t size, LogSite site) {
    SqlText text(static_cast<char*>(malloc(size)));
    if (text == nullptr) LogError(site, "Failed to malloc(%d)", static_cast<int>(size));
    return text;
}

using EscapeFunction = int (*)(const char* text, char* out, size_t out_size);

/// `growth` bytes are the most that one byte can become.
SqlText Escape(const char* text, EscapeFunction escape, size_t growth, LogSite site) {
    const size_t size = growth * strlen(text) + 1;
    SqlText escaped = Allocate(size, site);
    if (escaped == nullptr) return nullptr;
    if (escape(text, escaped.get(), size) != 0) {
        LogError(site, "Failed to escape condition.");
        return nullptr;
    }
    return escaped;
}

}  // namespace

SqlText QuoteText(const char* text, LogSite site) {
    return Escape(text, KOLIDBEscapeString, 2, site);
}

SqlText LikeText(const char* text, LogSite site) {
    const SqlText quoted = QuoteText(text, site);
    if (quoted == nullptr) return nullptr;
    return Escape(quoted.get(), KOLIDBEscapeBackslash, 3, site);
}

SqlText FormatSql(LogSite site, const char* format, ...) {
    va_list arguments;
    va_list again;
    va_start(arguments, format);
    va_copy(again, arguments);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the check does not see va_start
    const int length = vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    SqlText text = length >= 0 ? Allocate(static_cast<size_t>(length) + 1, site) : nullptr;
    if (text != nullptr) vsnprintf(text.get(), static_cast<size_t>(length) + 1, format, again);
    va_end(again);
    return text;
}

}  // namespace koli
