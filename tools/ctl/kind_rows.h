// What list and search print: rows of several kinds, or only their paths or numbers.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/ctl/context.h"
#include "tools/ctl/output.h"

namespace koli::ctl {

struct RowsOptions {
    std::vector<std::string> kinds = {};  // none = all
    std::string below = {};               // a path; "" = everywhere
    int64_t limit = 0;                    // rows of each kind, 0 = all
    bool count = false;                   // only how many there are
    bool print0 = false;                  // only the paths, each with a NUL behind it

    bool Wants(std::string_view kind) const;
};

class KindRows {
  public:
    KindRows(const Context& context, const RowsOptions& options, const std::vector<std::string>& columns);

    /// What follows is of this kind.
    void Begin(const std::string& kind) { counts_.emplace_back(kind, int64_t{0}); }
    /// False once as many of the kind are there as are wanted.
    bool HasRoom() const { return options_.limit == 0 || counts_.back().second < options_.limit; }
    /// True when fields beside the path are printed.
    bool WantsFields() const { return printer_ != nullptr; }
    void Row(const std::vector<Field>& fields, std::string_view path);
    /// Prints what is left.
    void End();
    int64_t total() const;

  private:
    void PrintCounts() const;

    const Context& context_;
    const RowsOptions& options_;
    std::unique_ptr<RowPrinter> printer_;
    std::vector<std::pair<std::string, int64_t>> counts_;
};

}  // namespace koli::ctl
