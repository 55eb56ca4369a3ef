// The commands that queue requests: add, remove, rename, rebuild, resync, truncate.
#pragma once

#include <string>
#include <vector>

#include "tools/ctl/submit.h"

namespace koli::ctl {

/// Each refuses everything, with one complaint and kExitUsage, when one of its arguments cannot be queued;
/// nothing is written then.  They return an ExitCode.
///
/// Add leaves out what no walk would store, with a complaint for each; when it is all, nothing is queued and
/// it is kExitUsage.
int Add(const Context& context, const std::vector<std::string>& paths, const WaitOptions& options);
int Remove(const Context& context, const std::vector<std::string>& paths, const WaitOptions& options);
int Rename(const Context& context, const std::string& old_path, const std::string& new_path,
           const WaitOptions& options);

/// `library` is music, video, photo (the photo library) or all (the media store of all three shares).
int Rebuild(const Context& context, const std::string& library, const WaitOptions& options);

/// Looks at the photo share again, for the photo library.
int Resync(const Context& context, const WaitOptions& options);

/// Empties one of the ten tables, when `is_sure`.
int Truncate(const Context& context, const std::string& table, bool is_sure, const WaitOptions& options);

}  // namespace koli::ctl
