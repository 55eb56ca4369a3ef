#include "tools/serve/page/picture_parts.h"

#include "tools/serve/page/parts.h"

namespace koli::serve {
namespace {

Address PictureAddress(const std::string& path, bool is_by_date) {
    Address address = EntryAddress(path);
    if (is_by_date) address.Query("in", kByDate);
    return address;
}

}  // namespace

std::string MonthName(const std::string& month) {
    static constexpr const char* kMonths[] = {"January",   "February", "March",    "April",
                                              "May",       "June",     "July",     "August",
                                              "September", "October",  "November", "December"};
    if (month.empty()) return "Not dated";
    if (month.size() != kMonthLength || month[4] != '-') return month;
    const int number = (month[5] - '0') * 10 + month[6] - '0';
    if (number < 1 || number > 12) return month;
    return std::string(kMonths[number - 1]) + " " + month.substr(0, 4);
}

void AddPictureGrid(const Visit& visit, const Piece<PictureRow>& pictures, bool is_by_date, Markup& to) {
    to << "<ul class=\"photos\" id=\"list\">";
    for (const PictureRow& picture : pictures.rows)
        AddTile(picture, PictureAddress(picture.path, is_by_date && !visit.is_kept), to);
    to << "</ul>";
}

void AddPicture(const PictureRow& picture, Markup& to) {
    to << "<figure class=\"picture\"><a";
    to.Link("href", FileAddress(picture.path)) << "><img";
    to.Link("src", SmallAddress(picture.path, false, 1280)).Attribute("alt", picture.title);
    if (picture.width > 0 && picture.height > 0)
        to.Attribute("width", picture.width).Attribute("height", picture.height);
    to << "></a>";
    if (!picture.description.empty()) {
        to << "<figcaption dir=\"auto\">";
        to.Name(picture.description) << "</figcaption>";
    }
    to << "</figure>";
}

}  // namespace koli::serve
