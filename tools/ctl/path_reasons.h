// What a path and the disk say about whether something is stored.
#pragma once

#include <string>
#include <vector>

namespace koli::ctl {

/// Why something is not in the library, or not in all of it.
struct Reason {
    std::string code;  // for programs: "unknown_extension"
    std::string text;  // for people, to be begun with a capital or behind a ':'; no full stop
};
using Reasons = std::vector<Reason>;

/// Why no walk stores a file or folder of this path, by its names and its place; none: they speak for it.
Reasons RuleReasons(const std::string& path, bool is_folder);

/// Why there is nothing at `path` that could be stored.
Reasons DiskReasons(const std::string& path);

/// Where no walk of the share enters on its way down to `path`.
Reasons LinkReasons(const std::string& path);

/// Why no share holds `path`.
Reasons ShareReasons(const std::string& path);

/// Why the photo library leaves a picture out that the media store may hold.
Reasons PhotoReasons(const std::string& path);

/// Why a folder of the photo share becomes no album.
Reasons AlbumReasons(const std::string& path);

}  // namespace koli::ctl
