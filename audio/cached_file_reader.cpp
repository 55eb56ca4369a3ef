#include "audio/cached_file_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <unistd.h>

#include "base/open_file.h"
#include "platform/kolidb.h"

namespace koli {
namespace {

int64_t ReadAt(const CachedFileReader* reader, int64_t offset, void* bytes, size_t length) {
    KOLIDBTick();  // a file that takes long must not keep the databases locked
    ssize_t count = 0;
    do {
        count = pread(fileno(reader->fp), bytes, length, offset);
    } while (count < 0 && errno == EINTR);
    return count;
}

/// A short read, and also a failed one, marks the end of what can be read: a damaged disk must not cost one
/// attempt for each byte behind the damage.
bool FillBuffer(CachedFileReader* reader, int64_t offset) {
    if (offset < 0 || offset >= reader->end_of_file) return false;
    const int64_t count = std::max<int64_t>(ReadAt(reader, offset, reader->buffer, kReadAhead), 0);
    if (count < kReadAhead) reader->end_of_file = offset + count;
    reader->buffer_start = offset;
    reader->buffer_end = offset + count;
    return count > 0;
}

bool IsBuffered(const CachedFileReader* reader, int64_t offset) {
    return offset >= reader->buffer_start && offset < reader->buffer_end;
}

}  // namespace

int CachedFileOpen(CachedFileReader* reader, const char* path, LogSite site) {
    const int fd = OpenForReading(path);
    reader->fp = fd >= 0 ? fdopen(fd, "rb") : nullptr;
    if (reader->fp == nullptr) {
        if (fd >= 0) close(fd);
        LogError("%s (%d) Unable to open %s ", site.module, site.line, path);
        return -1;
    }
    if (lseek(fd, 0, SEEK_END) == -1) {
        LogError("%s (%d) Unable to seek to end %s ", site.module, site.line, path);
        CachedFileClose(reader);
        return -1;
    }
    reader->size = lseek(fd, 0, SEEK_CUR);
    if (reader->size == -1) {
        LogError("%s (%d) Seeking to end of input file %s failed.", site.module, site.line, path);
        CachedFileClose(reader);
        return -1;
    }
    return 0;
}

void CachedFileClose(CachedFileReader* reader) {
    if (reader->fp != nullptr) fclose(reader->fp);
    reader->fp = nullptr;
}

int CachedByteAt(CachedFileReader* reader, int64_t offset) {
    if (!IsBuffered(reader, offset) && !FillBuffer(reader, offset)) return kUnreadable;
    return reader->buffer[offset - reader->buffer_start];
}

ByteWindow CachedWindowAt(CachedFileReader* reader, int64_t offset, int64_t wanted) {
    const bool enough = IsBuffered(reader, offset) &&
                        (reader->buffer_end - offset >= wanted || reader->buffer_end >= reader->end_of_file);
    if (!enough && !FillBuffer(reader, offset)) return {nullptr, 0};
    return {reader->buffer + (offset - reader->buffer_start), reader->buffer_end - offset};
}

/// Asking costs a system call, so only a zero byte before `offset` is a reason to.
int64_t CachedSkipHole(const CachedFileReader* reader, int64_t offset, int64_t end) {
    if (!IsBuffered(reader, offset - 1) || reader->buffer[offset - 1 - reader->buffer_start] != 0)
        return offset;
    int64_t data = lseek(fileno(reader->fp), offset, SEEK_DATA);
    if (data == -1 && errno == ENXIO) data = reader->size;  // a hole up to the end of the file
    return std::max(offset, std::min(data, end));
}

void CachedCopy(CachedFileReader* reader, int64_t offset, uint8_t* bytes, size_t length) {
    while (length > 0) {
        const ByteWindow window = CachedWindowAt(reader, offset);
        if (window.length == 0) break;
        const size_t count = std::min(length, static_cast<size_t>(window.length));
        memcpy(bytes, window.data, count);
        bytes += count;
        offset += static_cast<int64_t>(count);
        length -= count;
    }
    memset(bytes, kUnreadable, length);
}

int64_t ReadDirect(const CachedFileReader* reader, int64_t offset, void* bytes, size_t length) {
    if (IsBuffered(reader, offset) && reader->buffer_end - offset >= static_cast<int64_t>(length)) {
        memcpy(bytes, reader->buffer + (offset - reader->buffer_start), length);
        return static_cast<int64_t>(length);
    }
    return ReadAt(reader, offset, bytes, length);
}

uint32_t ReadSyncsafe32(CachedFileReader* reader, int64_t offset) {
    if (offset < 0) return kUnreadable;
    uint8_t b[4];
    CachedCopy(reader, offset, b, sizeof b);
    return uint32_t{b[0]} << 21 | uint32_t{b[1]} << 14 | uint32_t{b[2]} << 7 | uint32_t{b[3]};
}

uint32_t ReadBe32Direct(const CachedFileReader* reader, int64_t offset) {
    if (offset < 0) return kUnreadable;
    uint8_t b[4] = {};
    ReadDirect(reader, offset, b, sizeof b);
    return uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 | uint32_t{b[3]};
}

}  // namespace koli
