// What fits on a terminal, in columns: some characters take two of them, some none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace koli::ctl {

struct TerminalSize {
    size_t columns = 80;
    size_t rows = 24;
};

/// The size of the terminal behind a descriptor at this moment; the usual one when it does not tell.
TerminalSize TerminalSizeOf(int fd);

/// Whether lines can be drawn over there: a terminal that is more than a teletype.
bool IsDrawable(int fd);

/// Whether this user's terminals take UTF-8, as the locale says.
bool HasUtf8();

/// Columns of a text as Printable() gives it.
size_t ColumnsOf(std::string_view text);

/// A text of at most so many columns: more of the end than of the beginning stays, with an ellipsis between.
std::string CutMiddle(std::string_view text, size_t columns);

/// The same; the beginning stays.
std::string CutEnd(std::string_view text, size_t columns);

/// "[####....]" of so many columns.
std::string Bar(int64_t part, int64_t whole, size_t columns);

}  // namespace koli::ctl
