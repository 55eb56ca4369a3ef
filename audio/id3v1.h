// The ID3v1 tag: the last 128 bytes of a file, "TAG" and a block of fixed fields.
#pragma once

#include <cstdint>

#include "audio/cached_file_reader.h"

namespace koli {

/// The 125 bytes behind "TAG", as they lie in the file: Latin-1 text, padded with zeros or blanks, not
/// terminated when a field is full.
struct Id3v1Block {
    char title[30];    // 0
    char artist[30];   // 30
    char album[30];    // 60
    char year[4];      // 90
    char comment[30];  // 94; ID3v1.1: byte 28 (122 of the block) is 0 and byte 29 (123) the track number
    uint8_t genre;     // 124; index of the genre table
};
static_assert(sizeof(Id3v1Block) == 125);

/// Reads the trailer and takes it off `reader->size`.  A text that is only blanks becomes empty.  Returns 1
/// when there is one, 0 when not, -1 when it cannot be read (logged; the size stays).
int Id3v1Read(CachedFileReader* reader, Id3v1Block* block);

}  // namespace koli
