#include <cstdio>

#include "base/log.h"

namespace koli {
namespace {

char first_line[kLogFirstSize];

}  // namespace

const char* LogFirst() {
    return first_line;
}

void LogFirstForget() {
    first_line[0] = '\0';
}

void LogFirstNote(const char* format, va_list arguments) {
    if (first_line[0] == '\0') vsnprintf(first_line, sizeof first_line, format, arguments);
}

void LogFirstSay(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    LogFirstNote(format, arguments);
    va_end(arguments);
}

}  // namespace koli
