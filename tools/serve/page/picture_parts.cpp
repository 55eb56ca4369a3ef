#include "tools/serve/page/picture_parts.h"

#include <algorithm>

#include "tools/serve/page/parts.h"

namespace koli::serve {
namespace {

constexpr size_t kMonthLength = 7;  // "2024-05"

Address PictureAddress(const std::string& path, std::string_view list, size_t at) {
    Address address = EntryAddress(path);
    if (!list.empty()) address.Query("in", list).Query("at", std::to_string(at));
    return address;
}

/// The list that a picture is shown in, around the place `at`.
Piece<PictureRow> Around(const Visit& visit, const PictureRow& picture, std::string_view list, size_t at) {
    const Span span{at == 0 ? 0 : at - 1, at == 0 ? 2U : 3U};
    if (list == "album" && !picture.album.empty()) return visit.library.PicturesIn(picture.album, span);
    if (list == "date") return visit.library.PicturesOfMonth(picture.taken.substr(0, kMonthLength), span);
    return {};
}

struct Neighbours {
    const PictureRow* before = nullptr;
    const PictureRow* behind = nullptr;
};

/// None when the list has changed so much that the picture is not where it was.
Neighbours NeighboursIn(const Piece<PictureRow>& piece, const std::string& path) {
    const auto& rows = piece.rows;
    const auto here =
        std::find_if(rows.begin(), rows.end(), [&path](const auto& row) { return row.path == path; });
    if (here == rows.end()) return {};
    return {here == rows.begin() ? nullptr : &*(here - 1), here + 1 == rows.end() ? nullptr : &*(here + 1)};
}

size_t PlaceOf(const Visit& visit) {
    const std::string& at = visit.Value("at");
    constexpr size_t kDigits = 9;
    const bool is_number =
        !at.empty() && at.size() <= kDigits && at.find_first_not_of("0123456789") == std::string::npos;
    return is_number ? std::stoul(at) : 0;
}

void AddTurn(const Address& address, Literal rel, const char* name, Markup& to) {
    to << "<a class=\"button\" rel=\"" << rel << "\"";
    to.Link("href", address) << ">";
    to.Text(name) << "</a>";
}

}  // namespace

std::string MonthText(const std::string& month) {
    static constexpr const char* kMonths[] = {"January",   "February", "March",    "April",
                                              "May",       "June",     "July",     "August",
                                              "September", "October",  "November", "December"};
    if (month.empty()) return "Not dated";
    if (month.size() != kMonthLength || month[4] != '-') return month;
    const int number = (month[5] - '0') * 10 + month[6] - '0';
    if (number < 1 || number > 12) return month;
    return std::string(kMonths[number - 1]) + " " + month.substr(0, 4);
}

void AddPictureGrid(const Piece<PictureRow>& pictures, std::string_view list, Markup& to) {
    to << "<ul class=\"photos\" id=\"list\">";
    size_t at = pictures.from;
    for (const PictureRow& picture : pictures.rows)
        AddTile(picture, PictureAddress(picture.path, list, at++), to);
    to << "</ul>";
}

void AddPicture(const Visit& visit, const PictureRow& picture, Markup& to) {
    const std::string& list = visit.Value("in");
    const size_t at = PlaceOf(visit);
    const auto around = Around(visit, picture, list, at);
    const Neighbours near = NeighboursIn(around, picture.path);
    to << "<figure class=\"picture\"><img";
    to.Link("src", SmallAddress(picture.path, false, 1280)).Attribute("alt", picture.title);
    if (picture.width > 0 && picture.height > 0)
        to.Attribute("width", picture.width).Attribute("height", picture.height);
    to << ">";
    if (!picture.description.empty()) {
        to << "<figcaption dir=\"auto\">";
        to.Name(picture.description) << "</figcaption>";
    }
    to << "</figure><nav class=\"turn\" aria-label=\"Pictures\"><span>";
    if (near.before != nullptr && at > 0)
        AddTurn(PictureAddress(near.before->path, list, at - 1), "prev", "Previous", to);
    to << "</span><span>";
    if (near.behind != nullptr) AddTurn(PictureAddress(near.behind->path, list, at + 1), "next", "Next", to);
    to << "</span></nav>";
}

}  // namespace koli::serve
