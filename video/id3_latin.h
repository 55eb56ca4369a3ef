// Texts of a container's ID3v2 tag, which the container library hands over as if each byte were Latin-1.
#pragma once

extern "C" {
#include <libavformat/avformat.h>
}

#include <string>

namespace koli {

/// Gives such texts the bytes back that they have in the file, so that they are read in the machine's charset
/// of old tags.  Without one (BlKOLITagCharsetIsSet) nothing is read, nor changed.
class Id3Latin {
  public:
    /// `input` stays the caller's; its reading position is moved.
    explicit Id3Latin(AVFormatContext* input) : input_(input) {}

    /// The tag's bytes of `text`; `text` itself when it is no text of Latin-1 in the tag's first MiB.
    std::string BytesOf(const char* text);

  private:
    void Read();

    AVFormatContext* input_;
    bool is_read_ = false;
    std::string tag_;
};

}  // namespace koli
