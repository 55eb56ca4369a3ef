#include "tools/watch/composer.h"

#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "index/directory_listing.h"
#include "index/share_path.h"
#include "tools/ctl/context.h"
#include "tools/ctl/request_line.h"

namespace koli::watch {
namespace {

bool Exists(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

const char* ExtensionOf(const std::string& path) {
    const size_t dot = path.rfind('.');
    return dot != std::string::npos ? path.c_str() + dot : "";
}

/// The photo library has rows of what lies in the photo share only, and a rename request neither makes nor
/// removes them where one path is outside.
bool ChangesShareKind(const SettledChange& move) {
    return IsPhotoSharePath(move.path.c_str()) != IsPhotoSharePath(move.old_path.c_str());
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
    if (const char* refusal = ctl::PathRefusal(path); refusal != nullptr) {
        // What a comparison finds new under such a name it asks for with its folder.
        if (code == 'a' || code == 'A') return AddCompare(path.substr(0, path.rfind('/')));
        ctl::Complain("%s: %s", path.c_str(), refusal);
        return;
    }
    lines_ += ctl::RequestLine(code, path);
    ++requests_;
}

void Composer::Add(const SettledChange& change) {
    switch (change.kind) {
        case SettledChange::kAddFile:
            return AddLine('a', change.path);
        case SettledChange::kAddTree:
            return AddLine('A', change.path);
        case SettledChange::kAddBurst:
            return AddBurst(change);
        case SettledChange::kRemoveFile:
            return AddLine('d', change.path);
        case SettledChange::kRemoveTree:
            return AddLine('D', change.path);
        case SettledChange::kMoveFile:
        case SettledChange::kMoveFileChanged:
            return AddFileMove(change);
        case SettledChange::kMoveTree:
            return AddTreeMove(change);
        case SettledChange::kCompareTree:
            return AddCompare(change.path);
    }
}

/// A file that has got another kind, or whose old path is in use again, is told as what went and what came.
void Composer::AddFileMove(const SettledChange& move) {
    const bool is_reused = Exists(move.old_path);
    const bool is_same_kind = strcasecmp(ExtensionOf(move.path), ExtensionOf(move.old_path)) == 0;
    if (is_reused || !is_same_kind || ChangesShareKind(move) ||
        ctl::RenameRefusal(move.path, move.old_path) != nullptr) {
        AddLine(is_reused ? 'a' : 'd', move.old_path);
        AddLine('a', move.path);
        return;
    }
    lines_ += ctl::RenameLine(move.path, move.old_path);
    ++requests_;
    if (move.kind == SettledChange::kMoveFileChanged) AddLine('a', move.path);
}

/// What is still to be compared under the old path takes its stale rows along.  Where the old path is in use
/// again, requests that still wait may have taken the one folder for the other.
void Composer::AddTreeMove(const SettledChange& move) {
    const std::vector<std::string> compares = compares_;
    for (const std::string& folder : compares)
        if (IsAtOrBelowPath(folder, move.old_path)) AddCompare(MovedPath(folder, move.old_path, move.path));
    if (Exists(move.old_path)) {
        AddCompare(move.old_path);
        AddCompare(move.path);
    }
    if (ChangesShareKind(move) || ctl::RenameRefusal(move.path, move.old_path) != nullptr) {
        AddLine('D', move.old_path);
        AddLine('A', move.path);
        return;
    }
    lines_ += ctl::RenameLine(move.path, move.old_path);
    ++requests_;
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
