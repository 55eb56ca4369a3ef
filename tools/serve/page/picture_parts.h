// Pictures in a grid, and one by itself.
#pragma once

#include "tools/serve/page/visit.h"

namespace koli::serve {

/// "May 2024" for "2024-05".
std::string MonthText(const std::string& month);

/// `list` tells which list it is a piece of: "album" or "date", "" = none.  From there the page of each goes
/// on to the next.
void AddPictureGrid(const Piece<PictureRow>& pictures, std::string_view list, Markup& to);

/// The picture, large, with the links to its neighbours in the list that the address names.
void AddPicture(const Visit& visit, const PictureRow& picture, Markup& to);

}  // namespace koli::serve
