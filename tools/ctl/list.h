// list and problems: rows of the media store.
#pragma once

#include <string>
#include <vector>

#include "tools/ctl/context.h"
#include "tools/ctl/kind_rows.h"

namespace koli::ctl {

struct ListOptions : RowsOptions {
    std::vector<std::string> where = {};    // conditions.h; all must hold
    std::vector<std::string> columns = {};  // "kind" and names of columns; none: those for people, or all
    std::string sort = {};                  // a column; "" = by path
    bool reverse = false;
};

/// The files, kind after kind.  Returns an ExitCode; kExitDifferences when nothing at all is stored at
/// options.below.
int List(const Context& context, const ListOptions& options);

/// The files whose metadata could not be parsed, and why.  Returns kExitDifferences when there are any, and
/// when nothing at all is stored at `below`.
int Problems(const Context& context, const std::string& below);

}  // namespace koli::ctl
