#include "tools/ctl/kind_rows.h"

#include <algorithm>
#include <cstdio>

namespace koli::ctl {

bool RowsOptions::Wants(std::string_view kind) const {
    return kinds.empty() || std::find(kinds.begin(), kinds.end(), kind) != kinds.end();
}

KindRows::KindRows(const Context& context, const RowsOptions& options,
                   const std::vector<std::string>& columns)
    : context_(context), options_(options) {
    if (!options.count && !options.print0) printer_ = std::make_unique<RowPrinter>(columns, context.json);
}

void KindRows::Row(const std::vector<Field>& fields, std::string_view path) {
    ++counts_.back().second;
    if (printer_ != nullptr) return printer_->Row(fields);
    if (!options_.print0) return;
    fwrite(path.data(), 1, path.size(), stdout);
    putchar('\0');
}

void KindRows::End() {
    printer_.reset();
    if (options_.count) PrintCounts();
}

int64_t KindRows::total() const {
    int64_t total = 0;
    for (const auto& [kind, count] : counts_)
        total += count;
    return total;
}

void KindRows::PrintCounts() const {
    Record record;
    std::string line = std::to_string(total()) + " in all";
    const char* before = ": ";
    for (const auto& [kind, count] : counts_) {
        record.emplace_back(kind, count);
        if (count == 0) continue;
        line.append(before).append(std::to_string(count)).append(" ").append(kind);
        before = ", ";
    }
    record.emplace_back("total", total());
    if (context_.json)
        PrintRecord(record, true);
    else
        printf("%s\n", line.c_str());
}

}  // namespace koli::ctl
