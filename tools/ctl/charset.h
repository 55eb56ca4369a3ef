// koliindexctl charset: what the texts of old tags would be in each likely charset.
#pragma once

#include <string>
#include <vector>

#include "tools/ctl/context.h"

namespace koli::ctl {

/// Prints, for each of the MP3 and FLAC files that has texts which are neither UTF-8 nor UTF-16, what each
/// charset gives that has all of them, the likeliest of all files together first, and the setting that would
/// have the daemon read them so.  Changes nothing.  Returns the exit code: kExitUsage for another kind of
/// file, kExitFiles for one that cannot be read; the others are shown all the same.
int Charset(const Context& context, const std::vector<std::string>& paths);

}  // namespace koli::ctl
