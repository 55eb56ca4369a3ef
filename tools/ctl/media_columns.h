// The columns of the tables music, video, photo and playlist.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace koli::ctl {

struct MediaColumn {
    std::string name;
    bool is_number;
};

/// All of them, `path` first.
const std::vector<MediaColumn>& MediaColumns();

/// The one of that name; null when there is none.
const MediaColumn* MediaColumnFind(std::string_view name);

std::string MediaColumnNames();  ///< "path, title, ..."

/// A complaint of a name that is none of them, with the one that was probably meant, or all.
std::string MediaColumnUnknown(const std::string& name);

}  // namespace koli::ctl
