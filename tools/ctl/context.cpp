#include "tools/ctl/context.h"

#include <cstdarg>
#include <cstdio>

#include "tools/ctl/output.h"

namespace koli::ctl {
namespace {

constexpr size_t kMessageSize = 8192;  // bytes: two paths and their message fit; a longer one is cut

}  // namespace

void Complain(const char* format, ...) {
    char message[kMessageSize];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    fprintf(stderr, "koliindexctl: %s\n", Printable(message).c_str());
}

}  // namespace koli::ctl
