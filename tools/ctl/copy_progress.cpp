#include "tools/ctl/copy_progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "tools/ctl/output.h"
#include "tools/ctl/progress.h"
#include "tools/ctl/terminal.h"

namespace koli::ctl {

CopyProgress::CopyProgress() : is_drawn_(IsDrawable(STDERR_FILENO)), next_(MonotonicSeconds() + 1) {}

CopyProgress::~CopyProgress() {
    if (is_drawn_ && is_told_) fprintf(stderr, "\r\033[K");
}

void CopyProgress::Tell(const host::CopiedTable& table) {
    const double now = MonotonicSeconds();
    if (name_ != table.name) begun_ = now;
    name_ = table.name;
    if (now < next_) return;
    next_ = now + (is_drawn_ ? kSecondsPerDrawing : kSecondsPerLine);
    const double rate = now > begun_ ? static_cast<double>(table.rows) / (now - begun_) : 0;
    std::string line = table.name + ": " + std::to_string(table.rows) + " of " +
                       Counted(std::max(table.total, table.rows), "row") + RateText(rate);
    if (rate > 0 && table.rows < table.total)
        line += ", " + DurationText(static_cast<double>(table.total - table.rows) / rate) + " left";
    is_told_ = true;
    if (!is_drawn_) {
        fprintf(stderr, "koliindexctl: %s\n", line.c_str());
        return;
    }
    const size_t columns = TerminalSizeOf(STDERR_FILENO).columns - 1;
    const std::string bar = Bar(table.rows, std::max<int64_t>(table.total, 1), BarColumns(columns));
    fprintf(stderr, "\r%s\033[K", CutEnd(bar + (bar.empty() ? "" : " ") + line, columns).c_str());
}

}  // namespace koli::ctl
