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

/// "path, title, ...": for complaints.
std::string MediaColumnNames();

}  // namespace koli::ctl
