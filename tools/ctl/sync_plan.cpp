#include "tools/ctl/sync_plan.h"

#include <algorithm>

#include "tools/ctl/request_line.h"

namespace koli::ctl {

void SyncPlan::AddLine(char code, const std::string& path) {
    if (keep_ == kRequests) lines_ += RequestLine(code, path);
    ++requests_;
}

/// A name with a line break is found by the walk of its folder.
void SyncPlan::AddNearestFolder(std::string path) {
    while (path.size() > 1 && PathRefusal(path) != nullptr)
        path.resize(std::max<size_t>(path.rfind('/'), 1));
    if (whole_folders_.insert(path).second) AddLine('A', path);
}

void SyncPlan::Add(Change change, const std::string& path) {
    ++counts_[static_cast<size_t>(change)];
    if (keep_ == kDifferences) {
        differences_.push_back(static_cast<char>(change));
        differences_.insert(differences_.end(), path.c_str(), path.c_str() + path.size() + 1);
    }
    const bool is_gone = change == Change::kGoneFile || change == Change::kGoneTree;
    if (PathRefusal(path) != nullptr) {
        if (is_gone)
            ++uncarried_;
        else
            AddNearestFolder(path);
        return;
    }
    switch (change) {
        case Change::kNewFile:
        case Change::kChangedFile:
        case Change::kUnrecordedFolder:
        case Change::kUnread:
        case Change::kNoCover:
        case Change::kNoAlbum:
            return AddLine('a', path);
        case Change::kNewFolder:
            return AddLine('A', path);
        case Change::kGoneFile:
            return AddLine('d', path);
        case Change::kGoneTree:
            return AddLine('D', path);
    }
}

SyncPlan::Mark SyncPlan::Here() const {
    return {counts_, differences_.size(), lines_.size(), requests_, uncarried_};
}

/// The folders that were queued whole lie in that top, which is not compared again.
void SyncPlan::BackTo(const Mark& mark) {
    counts_ = mark.counts;
    differences_.resize(mark.differences);
    lines_.resize(mark.lines);
    requests_ = mark.requests;
    uncarried_ = mark.uncarried;
}

bool SyncPlan::empty() const {
    return std::all_of(counts_.begin(), counts_.end(), [](int64_t count) { return count == 0; });
}

void SyncPlan::EachDifference(const ChangeHandler& take) const {
    for (auto at = differences_.begin(); at != differences_.end(); ++at) {
        const auto change = static_cast<Change>(*at++);
        const auto path = std::exchange(at, std::find(at, differences_.end(), '\0'));
        take(change, std::string(path, at));
    }
}

const char* ChangeName(Change change) {
    switch (change) {
        case Change::kNewFile:
            return "new";
        case Change::kChangedFile:
            return "changed";
        case Change::kNewFolder:
            return "new folder";
        case Change::kUnrecordedFolder:
            return "unrecorded folder";
        case Change::kGoneFile:
            return "gone";
        case Change::kGoneTree:
            return "gone folder";
        case Change::kUnread:
            return "unread";
        case Change::kNoCover:
            return "no cover";
        case Change::kNoAlbum:
            return "no album";
    }
    return "";
}

std::vector<std::string> WithoutNested(std::vector<std::string> paths) {
    std::vector<std::string> tops;
    std::sort(paths.begin(), paths.end());
    for (std::string& path : paths) {
        const auto holds = [&path](const std::string& top) { return IsAtOrBelow(path, top); };
        if (std::none_of(tops.begin(), tops.end(), holds)) tops.push_back(std::move(path));
    }
    return tops;
}

}  // namespace koli::ctl
