// An open file as the input of the container library: the library opens nothing by itself.
#pragma once

extern "C" {
#include <libavformat/avformat.h>
}

#include <cstdint>

#include "base/file_reading.h"
#include "base/read_ahead.h"

namespace koli {

/// A container, read through a descriptor.
class MediaInput {
  public:
    /// Opens what the regular file `file` holds as one of `formats`, demuxers by the names that the library
    /// gives them, with commas between.  `file` stays the caller's and must live as long; its offset is
    /// moved.  `path` is nothing but the name by which some formats are told apart.  Whatever else a demuxer
    /// asks for, by a reference in the file, is refused.
    MediaInput(int file, const char* path, const char* formats, FileReading& reading);
    ~MediaInput();
    MediaInput(const MediaInput&) = delete;
    MediaInput& operator=(const MediaInput&) = delete;

    /// Null when the file is none of the formats, or cannot be read.
    AVFormatContext* get() const { return context_; }

  private:
    static int Read(void* self, uint8_t* buffer, int size);
    static int64_t Seek(void* self, int64_t offset, int whence);
    int64_t Size() const;

    int file_;
    FileReading& reading_;  // that the file belongs to
    int64_t at_ = 0;        // the file's offset
    ReadAhead ahead_;
    AVIOContext* io_ = nullptr;
    AVFormatContext* context_ = nullptr;
};

}  // namespace koli
