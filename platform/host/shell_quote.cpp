#include "platform/kolisdk.h"

#include <cstddef>
#include <cstring>
#include <initializer_list>

namespace {

/// Appends to a buffer that it never overruns.
struct Output {
    char* bytes;
    size_t size;
    size_t used = 0;
    bool fits = true;

    void Put(char c) {
        fits = fits && used < size;
        if (fits) bytes[used++] = c;
    }
};

/// Between single quotes every byte but the quote itself stands for itself, newline included (POSIX
/// XCU 2.2.2); a quote is written as \' outside them.  Runs of the one or the other are kept together, which
/// keeps names with many quotes short.
void QuoteSingly(const char* text, Output* output) {
    bool quoted = false;
    const auto set_quoted = [&](bool wanted) {
        if (quoted != wanted) output->Put('\'');
        quoted = wanted;
    };
    if (*text == '\0') set_quoted(true);
    for (; *text != '\0'; ++text) {
        set_quoted(*text != '\'');
        if (!quoted) output->Put('\\');
        output->Put(*text);
    }
    set_quoted(false);
}

/// Between double quotes four bytes want a backslash (XCU 2.2.3).  Twice the text's length is enough for any
/// text of which two bytes are none of the four, as every path's are: the other way needs up to five bytes
/// for two.
void QuoteDoubly(const char* text, Output* output) {
    output->Put('"');
    for (; *text != '\0'; ++text) {
        if (strchr("$`\\\"", *text) != nullptr) output->Put('\\');
        output->Put(*text);
    }
    output->Put('"');
}

}  // namespace

extern "C" int KLIBEncShParam(const char* text, char* out, int out_size) {
    if (out == nullptr || out_size <= 0) return -1;
    out[0] = '\0';
    if (text == nullptr) return -1;
    for (const auto quote : {QuoteSingly, QuoteDoubly}) {
        Output output{out, static_cast<size_t>(out_size)};
        quote(text, &output);
        output.Put('\0');
        if (output.fits) return 0;
    }
    out[0] = '\0';  // a cut command must never run
    return -1;
}
