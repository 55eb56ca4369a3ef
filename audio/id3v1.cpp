#include "audio/id3v1.h"

#include <cerrno>

#include "base/log.h"

namespace koli {
namespace {

constexpr const char kModule[] = "metaid3";
constexpr int64_t kTrailerSize = 128;

/// Empties a field in which nothing but blanks stands before the first NUL or the end.
template <size_t size>
void EmptyIfBlank(char (&field)[size]) {
    size_t i = 0;
    while (i < size && field[i] == ' ')
        ++i;
    if (i == size || field[i] == '\0') field[0] = '\0';
}

}  // namespace

int Id3v1Read(CachedFileReader* reader, Id3v1Block* block) {
    const int64_t trailer = reader->size - kTrailerSize;
    if (CachedByteAt(reader, trailer) != 'T' || CachedByteAt(reader, trailer + 1) != 'A' ||
        CachedByteAt(reader, trailer + 2) != 'G')
        return 0;

    const int64_t count = ReadDirect(reader, trailer + 3, block, sizeof *block);
    if (count < 0 && (errno == EINVAL || errno == ESPIPE)) {
        KOLI_LOG("Failed to seek to (%lld)", static_cast<long long>(trailer + 3));
        return -1;
    }
    if (count <= 0) {
        KOLI_LOG("Failed to read id3v1 data");
        return -1;
    }
    reader->size -= kTrailerSize;
    EmptyIfBlank(block->title);
    EmptyIfBlank(block->artist);
    EmptyIfBlank(block->album);
    EmptyIfBlank(block->year);
    EmptyIfBlank(block->comment);
    return 1;
}

}  // namespace koli
