#include "tools/watch/composer.h"

#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "index/directory_listing.h"
#include "index/share_path.h"
#include "photo/album_name.h"
#include "tools/ctl/context.h"
#include "tools/ctl/media_kinds.h"
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

/// One of the photo share's first two levels.
bool IsAlbum(const std::string& path) {
    return IsPhotoSharePath(path.c_str()) != 0 && path.size() > kShareTopLength &&
           std::count(path.begin() + kShareTopLength + 1, path.end(), '/') <= 1;
}

const char* ExtensionOf(const std::string& path) {
    const size_t dot = path.rfind('.');
    return dot != std::string::npos ? path.c_str() + dot : "";
}

/// The photo library has rows of what lies in the photo share only, and a rename request neither makes nor
/// removes them where one path is outside.
bool IsNoRename(const SettledChange& move) {
    return IsPhotoSharePath(move.path.c_str()) != IsPhotoSharePath(move.old_path.c_str()) ||
           ctl::RenameRefusal(move.path, move.old_path) != nullptr;
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
            return AddTreeRemoval(change.path);
        case SettledChange::kMoveFile:
            return AddFileMove(change);
        case SettledChange::kMoveTree:
            return AddTreeMove(change);
        case SettledChange::kCompareTree:
            return AddCompare(change.path);
    }
}

/// A picture goes by a name that is in nobody's use: the daemon
/// might keep the row of one that was replaced at the new path when by then there is a file at the old one.
void Composer::AddFileMove(const SettledChange& move) {
    if (IsNoRename(move)) {
        AddLine('d', move.old_path);
        AddLine('a', move.path);
        return;
    }
    const std::string extension = ExtensionOf(move.old_path);
    const bool is_photo = ctl::MediaKindOf(move.old_path.c_str()) == kStorePhoto;
    const std::string aside = is_photo ? SetAside(move.old_path, extension) : "";
    AddLines(ctl::RenameLine(move.path, aside.empty() ? move.old_path : aside), 1);
    // What is stored of a file says of which kind it is.
    if (strcasecmp(ExtensionOf(move.path), extension.c_str()) != 0) AddLine('a', move.path);
}

/// What is still to be compared under the old path takes its stale rows along.  An album goes by a name that
/// is in nobody's use: at its new name it makes room only for an album whose folder has left the old one, and
/// by the time the request is executed there can be another folder.
void Composer::AddTreeMove(const SettledChange& move) {
    const std::vector<std::string> compares = compares_;
    for (const std::string& folder : compares)
        if (IsAtOrBelowPath(folder, move.old_path)) AddCompare(MovedPath(folder, move.old_path, move.path));
    if (IsNoRename(move)) {
        AddTreeRemoval(move.old_path);
        AddLine('A', move.path);
        return;
    }
    const std::string aside = IsAlbum(move.old_path) ? SetAside(move.old_path) : "";
    AddLines(ctl::RenameLine(move.path, aside.empty() ? move.old_path : aside), 1);
    // What else is stored there, should the new path be gone by then.
    if (!Exists(move.old_path)) AddLine('D', move.old_path);
}

/// By the time the request is executed another folder can stand there.  The daemon would keep what is stored
/// for it, captions and rights of the one that has gone.
void Composer::AddTreeRemoval(const std::string& path) {
    const std::string aside = SetAside(path);
    AddLine('D', path);
    if (!aside.empty()) AddLine('D', aside);
}

/// Asks for a rename of all that the photo library has of a path to one that is in nobody's use, directly in
/// the share: from there an album can be removed, however deep it was.  Returns that path, "" outside the
/// photo share.
std::string Composer::SetAside(const std::string& path, const std::string& extension) {
    if (IsPhotoSharePath(path.c_str()) == 0) return "";
    std::string aside = path.substr(0, kShareTopLength) + "/.koliindexctl-aside" + extension;
    while (Exists(aside))
        aside.insert(kShareTopLength + 1, ".");
    if (ctl::RenameRefusal(aside, path) != nullptr) return "";
    AddLines(ctl::RenameLine(aside, path), 1);
    return aside;
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
