#include "tools/watch/moves.h"

#include <strings.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "index/record/share_path.h"
#include "photo/albums/album_name.h"
#include "tools/ctl/request_line.h"
#include "tools/watch/tree_paths.h"

namespace koli::watch {
namespace {

constexpr size_t kMany = 4096;

bool IsInBin(const std::string& path) {
    return IsRecycleBinPath(path.c_str()) != 0;
}

/// 0 for a folder directly in the photo share, 1 in one of those, ...; -1 for all that is outside.
ptrdiff_t LevelOf(const std::string& path) {
    if (IsPhotoSharePath(path.c_str()) == 0 || path.size() <= kShareTopLength) return -1;
    return std::count(path.begin() + kShareTopLength + 1, path.end(), '/');
}

const char* ExtensionOf(const std::string& path) {
    const size_t dot = path.rfind('.');
    return dot != std::string::npos ? path.c_str() + dot : "";
}

/// The photo library has rows of what lies in the photo share only, and a rename request neither makes nor
/// removes them where one path is outside.
bool IsRename(const std::string& to, const std::string& stored, const std::string& place) {
    return !to.empty() && IsPhotoSharePath(to.c_str()) == IsPhotoSharePath(stored.c_str()) &&
           ctl::RenameRefusal(to, place) == nullptr;
}

}  // namespace

bool Moves::Moved(bool is_tree, const std::string& to, const std::string& from, int64_t now) {
    FileGone(to);
    const bool is_first = !here_.contains(from);
    if (is_first) {
        Hold(Found(is_tree, from), now);
        here_[from] = held_.size() - 1;
    }
    MoveTree(here_, from, to);
    ForTree(here_, to, [&](auto entry) { held_[entry->second].now = entry->first; });
    for (std::string& album : albums_)
        if (IsAtOrBelow(album, from)) album = MovedPath(album, from, to);
    if (is_tree && !is_first) Clear(from, now);
    return is_first;
}

void Moves::FileGone(const std::string& path) {
    if (const auto node = here_.extract(path); !node.empty()) held_[node.mapped()].now.clear();
}

void Moves::FolderGone(const std::string& path, int64_t now) {
    for (const auto& node : ExtractTree(here_, path))
        held_[node.mapped()].now.clear();
    Clear(path, now);
}

void Moves::Lost(const std::string& folder) {
    for (Held& held : held_) {
        const bool was_moved_there = IsAtOrBelow(held.now, folder);
        if (IsAtOrBelow(held.stored, folder) && (held.now.empty() || was_moved_there)) held.is_lost = true;
        if (was_moved_there) FileGone(std::string(held.now));
    }
}

void Moves::NeedsAlbum(const std::string& folder) {
    if (std::ranges::find(albums_, folder) == albums_.end()) albums_.push_back(folder);
}

/// Whatever is stored at the path has no folder any more: one that was there, or what a walk has met of one
/// that only came by.  A tree is removed from its deepest folders upwards: their removals are part of this
/// one.
void Moves::Clear(const std::string& path, int64_t now) {
    Held gone = Found(true, path);
    while (!held_.empty() && held_.back().is_tree && held_.back().now.empty() && !held_.back().is_lost &&
           IsAtOrBelow(held_.back().from, gone.from))
        held_.pop_back();
    Hold(std::move(gone), now);
}

/// What has not moved yet is stored where it is, or below the path at which the innermost folder around it
/// that has moved is stored.
Moves::Held Moves::Found(bool is_tree, const std::string& path) const {
    for (std::string above = path; !above.empty(); above = ParentOf(above))
        if (const auto around = here_.find(above); around != here_.end()) {
            const Held& held = held_[around->second];
            return {is_tree, MovedPath(path, above, held.stored), MovedPath(path, above, held.place)};
        }
    return {is_tree, path, path};
}

void Moves::Hold(Held held, int64_t now) {
    if (held_.empty()) {
        first_ = now;
        stamp_ = std::to_string(std::chrono::system_clock::now().time_since_epoch().count());
    }
    const std::string aside = AsidePath(held.from, held.is_tree);
    const bool is_aside = !aside.empty() && ctl::RenameRefusal(aside, held.from) == nullptr;
    held.place = is_aside ? aside : held.from;
    held_.push_back(std::move(held));
}

/// A path for the rows of what leaves `from`.  A sub-album stays one: the daemon looks for further albums in
/// one that comes up.  All other folders go directly into the share, from where an album can be removed,
/// however deep it was.  Never the same path twice, as some rows may stay.  "" outside the photo share.
std::string Moves::AsidePath(const std::string& from, bool is_tree) const {
    if (LevelOf(from) < 0) return "";
    const bool is_sub_album = is_tree && !IsInBin(from) && LevelOf(from) == 1;
    return from.substr(0, kShareTopLength) + "/.koliindexctl-aside-" + stamp_ + (is_sub_album ? "/" : "-") +
           std::to_string(held_.size()) + (is_tree ? "" : ExtensionOf(from));
}

bool Moves::IsDue(int64_t now, int64_t quiet) const {
    return !held_.empty() && (now - first_ >= quiet || held_.size() >= kMany);
}

/// Albums before those in them: they make room for all of theirs.  Other folders from the deepest upwards:
/// for one without any row the daemon walks, and would take the captions that wait in those below.
std::vector<Request> Moves::Take() {
    std::vector<Held> held = std::exchange(held_, {});
    here_.clear();
    std::erase_if(held, [](const Held& one) { return one.is_lost; });
    std::vector<Request> requests;
    for (const Held& one : held)
        if (one.place != one.from) requests.push_back({'N', one.place, one.from});
    for (const std::string& album : std::exchange(albums_, {}))
        if (LevelOf(album) == 0) requests.push_back({'a', album});
    const auto is_deep = [](const Held& one) { return one.is_tree && LevelOf(one.now) > 1; };
    std::ranges::stable_sort(held, [&](const Held& a, const Held& b) {
        if (is_deep(a) != is_deep(b)) return is_deep(a);
        return is_deep(a) ? b.now < a.now : a.now < b.now;
    });
    for (const Held& one : held)
        Place(one, &requests);
    return requests;
}

/// What is stored of a file says of which kind it is; and of what was in the bin not everything need be.
void Moves::Place(const Held& held, std::vector<Request>* requests) {
    const bool is_rename = IsRename(held.now, held.stored, held.place);
    if (is_rename)
        requests->push_back({'N', held.now, held.place});
    else
        requests->push_back({held.is_tree ? 'D' : 'd', held.place});
    const bool is_new = held.is_tree ? IsInBin(held.stored)
                                     : strcasecmp(ExtensionOf(held.now), ExtensionOf(held.stored)) != 0;
    if (!held.now.empty() && (!is_rename || is_new))
        requests->push_back({held.is_tree ? 'A' : 'a', held.now});
    if (held.is_tree)
        requests->push_back({Request::kVacated, held.stored, held.now});
    else if (is_rename)
        requests->push_back({Request::kArrived, held.now, held.stored});
}

}  // namespace koli::watch
