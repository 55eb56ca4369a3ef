#include "audio/cached_file_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <unistd.h>

#include "base/regular_file.h"

namespace koli {
namespace {

// No offset that is made from a file's size with a few frame lengths can overflow.
constexpr int64_t kMaxSize = int64_t{1} << 62;

/// One read that stays clear of what is known to be unreadable.  Returns its bytes, -1 with errno set; a read
/// that fails, or gives nothing in front of the file's end, makes its block unreadable.
int64_t ReadOnce(CachedFileReader* reader, int64_t offset, void* bytes, int64_t length) {
    const int64_t end = std::min(reader->end_of_file, offset + length);
    if (offset >= end) return 0;
    length = reader->unreadable.AskableFrom(offset, end);
    errno = EIO;
    if (length == 0) return -1;
    if (!reader->reading->MayGoOn()) {
        reader->end_of_file = 0;
        return -1;
    }
    const ssize_t count = ReadAt(fileno(reader->fp), offset, bytes, static_cast<size_t>(length));
    if (count > 0) return count;
    const int error = count == 0 ? EIO : errno;  // cut off in the meantime
    reader->reading->ReadFailed(error);
    reader->unreadable.Add(offset);
    // What lies in front may be sound, until that fails, too.
    if (reader->unreadable.failures >= UnreadableBlocks::kMost)
        reader->end_of_file = reader->unreadable.failures == UnreadableBlocks::kMost ? offset : 0;
    errno = error;
    return -1;
}

/// Fills the buffer from `offset` on, up to the file's end; blocks that cannot be read become 17.
bool FillBuffer(CachedFileReader* reader, int64_t offset) {
    reader->ahead.BeforeRead(fileno(reader->fp), offset, kReadAhead);
    int64_t filled = 0;
    while (offset >= 0 && filled < kReadAhead && offset + filled < reader->end_of_file) {
        const int64_t at = offset + filled;
        uint8_t* const bytes = reader->buffer + filled;
        int64_t count = ReadOnce(reader, at, bytes, kReadAhead - filled);
        if (count < 0 && at < reader->end_of_file) {
            count = std::min(reader->unreadable.EndOfBlockAt(at) - at, kReadAhead - filled);
            memset(bytes, kUnreadable, static_cast<size_t>(count));
        }
        filled += std::max<int64_t>(count, 0);
    }
    if (filled == 0) return false;
    reader->buffer_start = offset;
    reader->buffer_end = offset + filled;
    return true;
}

bool IsBuffered(const CachedFileReader* reader, int64_t offset) {
    return offset >= reader->buffer_start && offset < reader->buffer_end;
}

/// The first byte that is not zero; mostly all of them are, or the first one is not.
const uint8_t* FindNonZero(const uint8_t* bytes, int64_t count) {
    const auto size = static_cast<size_t>(count);
    if (size > 0 && bytes[0] == 0 && memcmp(bytes, bytes + 1, size - 1) == 0) return bytes + size;
    return std::find_if(bytes, bytes + size, [](uint8_t b) { return b != 0; });
}

}  // namespace

int64_t UnreadableBlocks::AskableFrom(int64_t offset, int64_t end) const {
    for (int i = 0; i < count; ++i)
        if (ranges[i].end > offset && ranges[i].start < end) end = std::max(ranges[i].start, offset);
    return end - offset;
}

int64_t UnreadableBlocks::EndOfBlockAt(int64_t offset) const {
    for (int i = 0; i < count; ++i)
        if (offset >= ranges[i].start && offset < ranges[i].end) return ranges[i].end;
    return offset;
}

void UnreadableBlocks::Add(int64_t offset) {
    ++failures;
    const int64_t end = (offset / kSize + 1) * kSize;
    if (count > 0 && ranges[count - 1].end == offset)
        ranges[count - 1].end = end;
    else if (count < kMost)
        ranges[count++] = {offset, end};
}

bool CachedFileOpen(CachedFileReader* reader, const char* path, FileReading& reading, LogSite site) {
    reader->reading = &reading;
    reader->fp = StreamOf(OpenForReading(path));
    if (reader->fp == nullptr) {
        reading.ReadFailed(errno);
        LogError(site, "Unable to open %s ", path);
        return false;
    }
    const int fd = fileno(reader->fp);
    if (lseek(fd, 0, SEEK_END) == -1) {
        LogError(site, "Unable to seek to end %s ", path);
        CachedFileClose(reader);
        return false;
    }
    const off_t size = lseek(fd, 0, SEEK_CUR);
    if (size == -1) {
        LogError(site, "Seeking to end of input file %s failed.", path);
        CachedFileClose(reader);
        return false;
    }
    reader->size = reader->end_of_file = std::min<int64_t>(size, kMaxSize);
    return true;
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

int64_t CachedSkipZeros(CachedFileReader* reader, int64_t from, int64_t end) {
    while (from < end) {
        const ByteWindow window = CachedWindowAt(reader, from);
        const int64_t count = std::min(window.length, end - from);
        const uint8_t* stop = FindNonZero(window.data, count);
        from += stop - window.data;
        if (count == 0 || stop != window.data + count) return from;
        from = CachedSkipHole(reader, from, end);
    }
    return from;
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

int64_t ReadDirect(CachedFileReader* reader, int64_t offset, void* bytes, size_t length) {
    if (IsBuffered(reader, offset) && reader->buffer_end - offset >= static_cast<int64_t>(length)) {
        memcpy(bytes, reader->buffer + (offset - reader->buffer_start), length);
        return static_cast<int64_t>(length);
    }
    return ReadOnce(reader, offset, bytes, static_cast<int64_t>(length));
}

uint32_t ReadSyncsafe32(CachedFileReader* reader, int64_t offset) {
    if (offset < 0) return kUnreadable;
    uint8_t b[4];
    CachedCopy(reader, offset, b, sizeof b);
    return uint32_t{b[0]} << 21 | uint32_t{b[1]} << 14 | uint32_t{b[2]} << 7 | uint32_t{b[3]};
}

uint32_t ReadBe32Direct(CachedFileReader* reader, int64_t offset) {
    if (offset < 0) return kUnreadable;
    uint8_t b[4] = {};
    ReadDirect(reader, offset, b, sizeof b);
    return uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 | uint32_t{b[3]};
}

}  // namespace koli
