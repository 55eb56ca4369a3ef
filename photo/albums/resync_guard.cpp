#include "photo/albums/resync_guard.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/later_renames.h"
#include "platform/kolidb.h"

namespace koli {
namespace {

constexpr const char kDeviceSetting[] = "photo_device";
constexpr int kNumberSize = 32;  // bytes of a device's number as text

/// Seconds by which the clock of a file system may be ahead of ours.
constexpr time_t kClockSlack = 60;

/// The clock of most file systems, which ticks every few milliseconds.
timespec Now() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return now;
}

bool IsLater(const timespec& time, const timespec& than) {
    return time.tv_sec != than.tv_sec ? time.tv_sec > than.tv_sec : time.tv_nsec > than.tv_nsec;
}

}  // namespace

ResyncGuard::ResyncGuard(const char* top, LogSite site) : top_(top), site_(site), begin_(Now()) {
    FolderListing listing;
    top_status_ = listing.Read(top);
    device_ = listing.device();
    inode_ = listing.inode();
}

/// A top that is not there is out of reach (a volume that is not mounted); any other has just gone.
bool ResyncGuard::List(const char* path, FolderListing* listing) {
    const FolderListing::Status status = listing->Read(path);
    if (status == FolderListing::Status::kRead) {
        // The same tick may be later.  What has a time to come got it while the clock was wrong.
        const timespec& changed = listing->changed();
        if (!IsLater(begin_, changed) && changed.tv_sec <= Now().tv_sec + kClockSlack) NoteMove(path);
        return true;
    }
    if (status == FolderListing::Status::kOutOfReach || strcmp(path, top_) == 0) {
        MissFolder(path);
    } else {
        NoteMove(path);
    }
    return false;
}

void ResyncGuard::Leave(const char* path, const FolderListing& listing) {
    if (!listing.IsStill(path)) NoteMove(path);
}

void ResyncGuard::MissFolder(const char* path) {
    LogError(site_, "Failed to open directory %s ", path);
    is_complete_ = false;
}

void ResyncGuard::NoteMove(const char* path) {
    if (!has_moved_)
        LogError(site_, "%s changes while it is read. What is stale waits for the next time.", path);
    has_moved_ = true;
}

bool ResyncGuard::IsStopped() {
    KOLIDBTick();
    if ((KOLIDBRefusing() & KOLI_PHOTO_DB) == 0) return false;
    is_complete_ = false;
    return true;
}

/// The top is another directory than it was, or it is empty and stands where nothing was ever swept.
bool ResyncGuard::HasLostVolume() const {
    FolderListing listing;
    if (listing.Read(top_) != FolderListing::Status::kRead || listing.device() != device_ ||
        listing.inode() != inode_)
        return true;
    if (!listing.is_empty()) return false;
    char noted[kNumberSize];
    const int found = PhotoDBSettingGet(kDeviceSetting, noted, sizeof noted);
    return found < 0 || (found == 0 && strtoull(noted, nullptr, 10) != device_);
}

bool ResyncGuard::MaySweep() {
    if (IsStopped() || !is_complete_ || has_moved_) return false;
    if (IsRenamedLater(nullptr)) {
        LogError(site_, "Renames wait in the queue. What is stale waits for the next time.");
        return false;
    }
    if (top_status_ == FolderListing::Status::kRead && !HasLostVolume()) return true;
    LogError(site_, "%s is not the share that it was. What is stale waits for the next time.", top_);
    return false;
}

void ResyncGuard::NoteSweep() const {
    char number[kNumberSize];
    snprintf(number, sizeof number, "%llu", static_cast<unsigned long long>(device_));
    PhotoDBSettingSet(kDeviceSetting, number);
}

}  // namespace koli
