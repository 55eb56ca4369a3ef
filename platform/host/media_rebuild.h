// What a rebuild of the media store has met (MediaRebuildBegin and its like).
//
// The rows that go are those that were not saved again, so what is saved is remembered: a hash of table and
// path, in memory.  Two paths with the same 64 bits only keep a row that should have gone.
#pragma once

#include <string_view>

namespace koli::host {

/// The tables of a note: those of StoreType, and
inline constexpr int kRebuildDirectory = 4;
inline constexpr int kRebuildProblem = 5;

/// The row of `path` in the table is being saved.  Does nothing outside of a rebuild, and does not throw.
void RebuildNote(int table, std::string_view path);

}  // namespace koli::host
