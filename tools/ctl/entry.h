// Everything that is stored for one file or folder.
#pragma once

#include <string>
#include <vector>

#include "tools/ctl/output.h"
#include "tools/ctl/store_reader.h"

namespace koli::ctl {

/// The rows of each table, how many there are below a folder, and the covers that lie beside the file; none
/// when nothing is stored.  `path` is the daemon's.
std::vector<Section> EntryOf(const StoreReader& store, const std::string& path);

}  // namespace koli::ctl
