// What a search looks for, and where: the same for every program that searches.
#pragma once

#include <string>
#include <vector>

namespace koli::ctl {

/// The words of the texts, folded (base/text/fold.h): what stands between blanks.
std::vector<std::string> SearchedWords(const std::vector<std::string>& texts);

/// The columns whose texts are searched beside the file's name: those of a file in the media store, and those
/// of its caption in the photo database.  `path` first, `title` second.
const std::vector<std::string>& SearchedTags();
const std::vector<std::string>& SearchedCaption();

}  // namespace koli::ctl
