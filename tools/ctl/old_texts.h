// The texts of a media file's tags that are in an old charset.
#pragma once

#include <string>
#include <vector>

namespace koli::ctl {

/// The columns of the media store for texts of tags.
std::vector<std::string> TextColumns();

/// A text that is neither UTF-8 nor marked as UTF-16, as it would reach the media store.
struct OldText {
    size_t column;  // of TextColumns()
    std::string bytes;
};

/// The texts of an MP3 or FLAC file, nothing of which is changed.  Returns kExitDone, or the exit code for a
/// file of another kind or one that cannot be read, which has then been complained about.
int OldTextsRead(const std::string& path, std::vector<OldText>* texts);

}  // namespace koli::ctl
