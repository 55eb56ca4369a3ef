// Where the program is found that tells the figures of a raw AAC file.
#pragma once

namespace koli {

/// A command's first word: an absolute path that the shell takes as it is.  A file of its own, because it is
/// the one thing in which an installed daemon differs from that of the build tree.
extern const char* const kAacDecoder;

}  // namespace koli
