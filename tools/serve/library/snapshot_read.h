// Reads both databases into a snapshot.
#pragma once

#include <memory>

#include "tools/ctl/store_reader.h"
#include "tools/serve/library/snapshot.h"

namespace koli::serve {

/// In pieces, so that no database is held for longer than it takes to read some hundred rows.  What fails is
/// told in Snapshot::error.  Texts that an earlier snapshot has in common with it are shared.  Null when
/// `is_wanted`, which is asked after each piece, says no.
std::shared_ptr<const Snapshot> SnapshotRead(const ctl::StoreReader& store, const Snapshot& earlier,
                                             const std::function<bool()>& is_wanted);

/// Everything of a snapshot that follows from its files: albums, names, months, orders.
void SnapshotGroup(Snapshot* snapshot);

}  // namespace koli::serve
