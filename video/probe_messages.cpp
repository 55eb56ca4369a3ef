#include "video/probe_messages.h"

#include <sys/mman.h>

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

ProbeMessages::ProbeMessages() {
    void* area = mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    area_ = area != MAP_FAILED ? static_cast<char*>(area) : nullptr;
}

ProbeMessages::~ProbeMessages() {
    if (area_ != nullptr) munmap(area_, kSize);
}

void ProbeMessages::Collect() const {
    next_line = area_;
    room_left = kSize;
    log_sink = Append;
}

void ProbeMessages::Relay() const {
    size_t at = 0;
    for (int lines = 0; lines < kMaxLines; ++lines) {
        const size_t length = strnlen(area_ + at, kSize - at);
        if (length == 0) return;
        LogError(LogSite("", LogForm::kBare), "%.*s", static_cast<int>(length), area_ + at);
        at += length + 1;
        if (at >= kSize) return;
    }
}

}  // namespace koli
