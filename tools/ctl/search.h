// search: files and folders by words that stand anywhere in their texts.
#pragma once

#include <string>
#include <vector>

#include "tools/ctl/context.h"
#include "tools/ctl/kind_rows.h"

namespace koli::ctl {

/// The kinds that are searched, in their order: those of the media store and "folder".
inline const std::vector<std::string> kSearchedKinds = {"music", "video", "photo", "playlist", "folder"};

/// What holds every word of `texts` in its name, its tags, its caption or, of a folder, its album's texts;
/// the words are folded (base/text/fold.h).  Rows come in the order of their paths.  Returns an ExitCode;
/// kExitDifferences when nothing is found.
int Search(const Context& context, const std::vector<std::string>& texts, const RowsOptions& options);

}  // namespace koli::ctl
