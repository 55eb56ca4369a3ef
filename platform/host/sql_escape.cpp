// Texts made fit for SQL: KOLIDBEscapeString and KOLIDBEscapeBackslash.
#include <cstring>

#include "platform/kolidb.h"

namespace {

/// Copies `text` with `escape` before each byte of `special`.  0, or -1 when it does not fit.
int Escape(const char* text, char* out, size_t out_size, const char* special, char escape) {
    if (text == nullptr || out == nullptr || out_size == 0) return -1;
    size_t used = 0;
    for (; *text != '\0'; ++text) {
        const bool escaped = strchr(special, *text) != nullptr;
        if (out_size - used < (escaped ? 3U : 2U)) {  // with the terminator
            out[0] = '\0';
            return -1;
        }
        if (escaped) out[used++] = escape;
        out[used++] = *text;
    }
    out[used] = '\0';
    return 0;
}

}  // namespace

extern "C" {

int KOLIDBEscapeString(const char* text, char* out, size_t out_size) {
    return Escape(text, out, out_size, "'", '\'');
}

int KOLIDBEscapeBackslash(const char* text, char* out, size_t out_size) {
    return Escape(text, out, out_size, "\\%_", '\\');
}

}  // extern "C"
