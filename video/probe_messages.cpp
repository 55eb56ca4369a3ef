#include "video/probe_messages.h"

#include <cstring>

#include "base/log.h"

namespace koli {
namespace {

char* next_line;   // in the child: where the next line goes
size_t room_left;  // bytes behind it

void Append(const char* line) {
    const size_t size = strlen(line) + 1;
    if (size > room_left) return;
    memcpy(next_line, line, size);
    next_line += size;
    room_left -= size;
}

}  // namespace

void ProbeMessages::Collect() {
    next_line = lines_;
    room_left = kSize;
    log_sink = Append;
}

void ProbeMessages::Relay() const {
    size_t at = 0;
    for (int lines = 0; lines < kMaxLines; ++lines) {
        const size_t length = strnlen(lines_ + at, kSize - at);
        if (length == 0) return;
        LogError(LogSite("", LogForm::kBare), "%.*s", static_cast<int>(length), lines_ + at);
        at += length + 1;
        if (at >= kSize) return;
    }
}

}  // namespace koli
