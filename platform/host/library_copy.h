// A library's way from one engine to another, row by row.
//
// The target becomes what the source is: rows are compared in the order of their paths, and only those that
// differ are written.  So a copy that was interrupted goes on where it was, and needs no more memory for a
// large library than for a small one.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/host/sql/database_engine.h"

namespace koli::host {

struct CopiedTable {
    std::string name;
    int64_t rows = 0;     // of the source, so far
    int64_t total = 0;    // that it had when the copy of the table began
    int64_t written = 0;  // into the target
    int64_t removed = 0;  // from it
};

struct LibraryCopied {
    std::vector<CopiedTable> tables = {};
    std::vector<std::string> lost = {};  // the first of the rows that the target cannot hold, and why
    int64_t lost_rows = 0;
    std::string error = {};   // a line for people; '' = all is there, and durable
    bool is_refused = false;  // nothing has been changed
};

/// Told the table at work now and then, and at its end.
using CopyWatcher = std::function<void(const CopiedTable& table)>;

/// Copies both databases.  Refuses while a daemon writes to one of the places (as far as the engines can
/// tell), and a target that holds rows which are not of an unfinished copy from the same place.
LibraryCopied LibraryCopy(const DatabaseEngine& from, const DatabaseEngine& to, const CopyWatcher& watch);

}  // namespace koli::host
