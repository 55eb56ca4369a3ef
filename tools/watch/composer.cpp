#include "tools/watch/composer.h"

#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "base/directory_listing.h"
#include "index/record/share_path.h"
#include "tools/ctl/context.h"
#include "tools/ctl/request_line.h"

namespace koli::watch {
namespace {

bool Exists(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

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

bool IsMove(const SettledChange& change) {
    return !change.old_path.empty();
}

bool IsTree(const SettledChange& change) {
    return change.kind == SettledChange::kMoveTree || change.kind == SettledChange::kRemoveTree;
}

const std::string& StoredPath(const SettledChange& change) {
    return IsMove(change) ? change.old_path : change.path;
}

/// True when a walk of the tree meets more than `limit` entries.
bool HoldsMoreThan(const std::string& folder, size_t limit) {
    std::vector<std::string> open{folder};
    size_t entries = 0;
    while (!open.empty()) {
        const std::string path = std::move(open.back());
        open.pop_back();
        DirectoryListing listing;
        if (!listing.Open(path.c_str())) continue;
        for (auto entry = listing.Next(); entry.name != nullptr; entry = listing.Next()) {
            if (++entries > limit) return true;
            if (entry.type == DT_DIR) open.push_back(path + "/" + entry.name);
        }
    }
    return false;
}

}  // namespace

void Composer::AddLine(char code, const std::string& path) {
    const bool is_addition = code == 'a' || code == 'A';
    if (is_addition && IsInBin(path)) return;
    if (const char* refusal = ctl::PathRefusal(path); refusal != nullptr) {
        // What a comparison finds new under such a name it asks for with its folder.
        if (is_addition) return AddCompare(path.substr(0, path.rfind('/')));
        ctl::Complain("%s: %s", path.c_str(), refusal);
        return;
    }
    AddLines(ctl::RequestLine(code, path), 1);
}

void Composer::AddLines(const std::string& lines, int64_t requests) {
    lines_ += lines;
    requests_ += requests;
}

/// Things that moved are told together: first everything leaves the path at which it is stored, for a name
/// that is in nobody's use, then it goes where it is now.  So nothing meets what is stored of another one,
/// whatever stands at which path when the requests are executed.
void Composer::Add(const std::vector<SettledChange>& changes, SentChanges* sent) {
    std::vector<SettledChange> rest;
    stamp_ = std::to_string(std::chrono::system_clock::now().time_since_epoch().count());
    for (const SettledChange& change : changes) {
        const std::vector<SettledChange> completed = sent->Complete(change);
        switch (change.kind) {
            case SettledChange::kMoveFile:
            case SettledChange::kMoveTree:
            case SettledChange::kRemoveTree:
            case SettledChange::kDropFile:
            case SettledChange::kStay:
                Lift(change);
                break;
            case SettledChange::kAddAlbum:
                if (LevelOf(change.path) == 0) AddLine('a', change.path);
                break;
            default:
                rest.push_back(change);
        }
        rest.insert(rest.end(), completed.begin() + 1, completed.end());
    }
    PlaceAll();
    for (const SettledChange& change : rest)
        AddOne(change);
}

void Composer::AddOne(const SettledChange& change) {
    switch (change.kind) {
        case SettledChange::kAddTree:
            return AddLine('A', change.path);
        case SettledChange::kAddBurst:
            return AddBurst(change);
        case SettledChange::kRemoveFile:
            return AddLine('d', change.path);
        case SettledChange::kCompareTree:
            return AddCompare(change.path);
        default:
            return AddLine('a', change.path);
    }
}

/// What is still to be compared takes its stale rows along.
void Composer::Lift(const SettledChange& change) {
    const std::string& stored = StoredPath(change);
    Move move{change, stored};
    if (change.inside >= 0) {
        const Move& around = moves_[static_cast<size_t>(change.inside)];
        move.place = MovedPath(stored, StoredPath(around.change), around.place);
    }
    const bool is_tree = IsTree(change);
    if (change.kind != SettledChange::kStay) {
        const std::string aside = AsidePath(move.place, is_tree);
        if (!aside.empty() && ctl::RenameRefusal(aside, move.place) == nullptr) {
            AddLines(ctl::RenameLine(aside, move.place), 1);
            move.place = aside;
            move.is_aside = true;
        }
        if (is_tree && !Exists(stored)) AddLine('D', stored);  // what the photo library does not know
    }
    moves_.push_back(std::move(move));
    if (!is_tree || !IsMove(change)) return;
    const std::vector<std::string> compares = compares_;
    for (const std::string& folder : compares)
        if (IsAtOrBelowPath(folder, stored)) AddCompare(MovedPath(folder, stored, change.path));
}

/// A path for the rows of what moves from `place`.  A sub-album stays one: the daemon looks for further
/// albums in one that comes up.  All other folders go directly into the share, from where an album can be
/// removed, however deep it was.  Never the same path twice, as some rows may stay.  "" outside the photo
/// share.
std::string Composer::AsidePath(const std::string& place, bool is_tree) const {
    if (LevelOf(place) < 0) return "";
    const bool is_sub_album = is_tree && !IsInBin(place) && LevelOf(place) == 1;
    return place.substr(0, kShareTopLength) + "/.koliindexctl-aside-" + stamp_ + (is_sub_album ? "/" : "-") +
           std::to_string(moves_.size()) + (is_tree ? "" : ExtensionOf(place));
}

/// Albums before those in them: they make room for all of theirs.  Other folders from the deepest upwards:
/// for one without any row the daemon walks, and would take the captions that wait in those below.
void Composer::PlaceAll() {
    const auto is_deep = [](const Move& move) {
        return IsTree(move.change) && LevelOf(move.change.path) > 1;
    };
    const auto is_before = [&](const Move& a, const Move& b) {
        if (is_deep(a) != is_deep(b)) return is_deep(a);
        return is_deep(a) ? b.change.path < a.change.path : a.change.path < b.change.path;
    };
    std::stable_sort(moves_.begin(), moves_.end(), is_before);
    for (const Move& move : moves_)
        PlaceOne(move);
    moves_.clear();
}

/// The photo library has rows of what lies in the photo share only, and a rename request neither makes nor
/// removes them where one path is outside.  What is stored of a file says of which kind it is.
void Composer::PlaceOne(const Move& move) {
    const SettledChange& change = move.change;
    const bool is_tree = IsTree(change);
    if (change.kind == SettledChange::kStay) return;
    const bool is_rename =
        IsMove(change) &&
        IsPhotoSharePath(change.path.c_str()) == IsPhotoSharePath(change.old_path.c_str()) &&
        ctl::RenameRefusal(change.path, move.place) == nullptr;
    if (!is_rename && (move.is_aside || !is_tree)) AddLine(is_tree ? 'D' : 'd', move.place);
    if (is_rename) AddLines(ctl::RenameLine(change.path, move.place), 1);
    // Of what was in the bin not everything need be stored.
    const bool is_new = is_tree ? IsInBin(change.old_path)
                                : strcasecmp(ExtensionOf(change.path), ExtensionOf(change.old_path)) != 0;
    if (IsMove(change) && (!is_rename || is_new)) AddLine(is_tree ? 'A' : 'a', change.path);
}

/// A request for the folder reads everything below it again: right when most of that is new.  Of a large tree
/// a comparison finds the few files that count.
void Composer::AddBurst(const SettledChange& burst) {
    if (HoldsMoreThan(burst.path, 2 * burst.files))
        AddCompare(burst.path);
    else
        AddLine('A', burst.path);
}

void Composer::AddCompare(const std::string& folder) {
    if (IsInBin(folder)) return;
    const auto covers = [&](const std::string& other) { return IsAtOrBelowPath(folder, other); };
    if (std::ranges::any_of(compares_, covers)) return;
    std::erase_if(compares_, [&](const std::string& other) { return IsAtOrBelowPath(other, folder); });
    compares_.push_back(folder);
}

std::string Composer::TakeLines() {
    return std::exchange(lines_, {});
}

std::vector<std::string> Composer::TakeCompares() {
    return std::exchange(compares_, {});
}

}  // namespace koli::watch
