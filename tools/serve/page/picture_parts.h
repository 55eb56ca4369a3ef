// Pictures in a grid, and one by itself.
#pragma once

#include "tools/serve/page/visit.h"

namespace koli::serve {

inline constexpr size_t kMonthLength = 7;  // "2024-05"
/// "May 2024" for "2024-05".
std::string MonthName(const std::string& month);

/// `is_by_date`: the pages of these go on to the next of their month, else to that of their album.
void AddPictureGrid(const Visit& visit, const Piece<PictureRow>& pictures, bool is_by_date, Markup& to);

/// The picture, large, with its caption.
void AddPicture(const PictureRow& picture, Markup& to);

}  // namespace koli::serve
