// Absolute paths as the keys of a sorted map: what stands at and below a folder, and what becomes of it when
// the folder moves.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/ctl/request_line.h"

namespace koli::watch {

using ctl::IsAtOrBelow;

/// `path`, which is at or below `from`, after `from` has become `to`.
inline std::string MovedPath(const std::string& path, const std::string& from, const std::string& to) {
    return to + path.substr(from.size());
}

inline std::string ParentOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

inline std::string NameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

/// Calls `visit` with each entry at and below `folder`, or the first `most` of them, which it may extract.
template <class Map, class Visit>
void ForTree(Map& map, const std::string& folder, size_t most, Visit visit) {
    for (auto it = map.lower_bound(folder); most > 0 && it != map.end() && it->first.starts_with(folder);) {
        const auto here = it++;
        if (!IsAtOrBelow(here->first, folder)) continue;
        visit(here);
        --most;
    }
}
template <class Map, class Visit>
void ForTree(Map& map, const std::string& folder, Visit visit) {
    ForTree(map, folder, SIZE_MAX, visit);
}

/// Takes the entries at and below `folder` out of the map.
template <class Map>
std::vector<typename Map::node_type> ExtractTree(Map& map, const std::string& folder) {
    std::vector<typename Map::node_type> nodes;
    ForTree(map, folder, [&](auto entry) { nodes.push_back(map.extract(entry)); });
    return nodes;
}

/// Gives the entries at and below `from` the paths that they have below `to`, where there are none.
template <class Map>
void MoveTree(Map& map, const std::string& from, const std::string& to) {
    for (auto& node : ExtractTree(map, from)) {
        node.key() = MovedPath(node.key(), from, to);
        map.insert(std::move(node));
    }
}

}  // namespace koli::watch
