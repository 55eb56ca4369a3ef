#include "tools/watch/composer.h"

#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "base/directory_listing.h"
#include "index/record/share_path.h"
#include "tools/ctl/context.h"
#include "tools/ctl/request_line.h"
#include "tools/watch/tree_paths.h"

namespace koli::watch {
namespace {

constexpr size_t kMaxNoted = 4096;  // noted; with so many all is compared

bool Exists(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

bool IsInBin(const std::string& path) {
    return IsRecycleBinPath(path.c_str()) != 0;
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
        if (is_addition) return AddCompare(ParentOf(path));
        ctl::Complain("%s: %s", path.c_str(), refusal);
        return;
    }
    lines_ += ctl::RequestLine(code, path);
    if (is_addition && asked_.size() < kMaxNoted)
        asked_.insert(path);
    else if (is_addition)
        are_all_asked_ = true;
}

/// They may be many: only what waits already is copied.
void Composer::AddFound(std::string lines) {
    are_all_asked_ |= !lines.empty();
    if (lines_.empty())
        lines_ = std::move(lines);
    else
        lines_ += lines;
}

void Composer::Add(const std::vector<Request>& requests) {
    for (const Request& request : requests) {
        switch (request.code) {
            case 'N':
                lines_ += ctl::RenameLine(request.path, request.other);
                break;
            case Request::kVacated:
                NoteVacated({request.path, request.other, WasAsked(request.path)});
                break;
            case Request::kArrived:
                if (WasAsked(request.other)) AddLine('a', request.path);
                break;
            case Request::kBurst:
                AddBurst(request.path, request.files);
                break;
            case Request::kCompare:
                AddCompare(request.path);
                break;
            default:
                AddLine(request.code, request.path);
        }
    }
}

/// A request for the folder reads everything below it again: right when most of that is new.  Of a large tree
/// a comparison finds the few files that count.
void Composer::AddBurst(const std::string& folder, size_t files) {
    if (HoldsMoreThan(folder, 2 * files))
        AddCompare(folder);
    else
        AddLine('A', folder);
}

/// True when `path`, something in it or a folder around it was to be added.
bool Composer::WasAsked(const std::string& path) const {
    if (are_all_asked_) return true;
    for (std::string above = path; !above.empty(); above = ParentOf(above))
        if (asked_.contains(above)) return true;
    const auto inside = asked_.lower_bound(path + "/");
    return inside != asked_.end() && IsAtOrBelow(*inside, path);
}

/// What is still to be compared takes its stale rows along.
void Composer::NoteVacated(const Vacated& folder) {
    if (!folder.moved_to.empty()) {
        for (Vacated& earlier : vacated_)
            if (IsAtOrBelow(earlier.moved_to, folder.path))
                earlier.moved_to = MovedPath(earlier.moved_to, folder.path, folder.moved_to);
        const std::vector<std::string> compares = compares_;
        for (const std::string& compared : compares)
            if (IsAtOrBelow(compared, folder.path))
                AddCompare(MovedPath(compared, folder.path, folder.moved_to));
    }
    if (vacated_.size() < kMaxNoted) vacated_.push_back(folder);
}

/// A folder that stands where another one was: a walk may have met it before that one's rows had moved, and
/// then some of its own went along.
bool Composer::Executed() {
    const bool is_full = vacated_.size() == kMaxNoted;
    for (const Vacated& folder : std::exchange(vacated_, {})) {
        const bool is_in_use = Exists(folder.path);
        if (is_in_use) AddCompare(folder.path);
        if ((is_in_use || folder.was_asked) && !folder.moved_to.empty()) AddCompare(folder.moved_to);
    }
    asked_.clear();
    are_all_asked_ = false;
    return !is_full;
}

void Composer::AddCompare(const std::string& folder) {
    if (IsInBin(folder)) return;
    const auto covers = [&](const std::string& other) { return IsAtOrBelow(folder, other); };
    if (std::ranges::any_of(compares_, covers)) return;
    std::erase_if(compares_, [&](const std::string& other) { return IsAtOrBelow(other, folder); });
    compares_.push_back(folder);
}

std::string Composer::TakeLines() {
    return std::exchange(lines_, {});
}

std::vector<std::string> Composer::TakeCompares() {
    return std::exchange(compares_, {});
}

}  // namespace koli::watch
