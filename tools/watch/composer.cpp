#include "tools/watch/composer.h"

#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "index/directory_listing.h"
#include "index/share_path.h"
#include "tools/ctl/context.h"
#include "tools/ctl/request_line.h"
#include "tools/watch/tree_paths.h"

namespace koli::watch {
namespace {

constexpr size_t kBurst = 64;         // more files of one folder can be one request
constexpr size_t kMaxVacated = 4096;  // noted; with so many all is compared

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
    AddLines(ctl::RequestLine(code, path), 1);
}

void Composer::AddLines(const std::string& lines, int64_t requests) {
    lines_ += lines;
    requests_ += requests;
    has_unexecuted_ |= requests > 0;
}

void Composer::Add(const std::vector<Request>& requests) {
    std::vector<std::string> files;  // of one folder
    const bool has_unexecuted = has_unexecuted_;
    for (const Request& request : requests) {
        const bool is_file = request.code == 'a';
        if (!files.empty() && (!is_file || ParentOf(files[0]) != ParentOf(request.path)))
            AddFiles(std::exchange(files, {}));
        if (is_file)
            files.push_back(request.path);
        else if (request.code == 'N')
            AddLines(ctl::RenameLine(request.path, request.other), 1);
        else if (request.code == Request::kCompare)
            AddCompare(request.path);
        else if (request.code == Request::kVacated)
            NoteVacated({request.path, request.other, has_unexecuted});
        else if (request.code == Request::kArrived) {
            // The daemon may have looked for it where it was.
            if (has_unexecuted) AddLine('a', request.path);
        } else
            AddLine(request.code, request.path);
    }
    AddFiles(files);
}

/// A request for the folder reads everything below it: right when most of that is new.
void Composer::AddFiles(const std::vector<std::string>& paths) {
    if (paths.size() > kBurst && !HoldsMoreThan(ParentOf(paths[0]), 2 * paths.size()))
        return AddLine('A', ParentOf(paths[0]));
    for (const std::string& path : paths)
        AddLine('a', path);
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
    if (vacated_.size() < kMaxVacated) vacated_.push_back(folder);
}

/// A folder that stands where another one was: a walk may have met it before that one's rows had moved, and
/// then some of its own went along.
bool Composer::Executed() {
    const bool is_full = vacated_.size() == kMaxVacated;
    for (const Vacated& folder : std::exchange(vacated_, {})) {
        const bool is_in_use = Exists(folder.path);
        if (is_in_use) AddCompare(folder.path);
        if ((is_in_use || folder.had_unexecuted) && !folder.moved_to.empty()) AddCompare(folder.moved_to);
    }
    has_unexecuted_ = false;
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
