#include "photo/caption_removal.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/folder_sync.h"
#include "base/held_folder.h"
#include "base/passing_error.h"
#include "base/written_file_systems.h"
#include "photo/caption.h"
#include "platform/kolidb.h"

namespace koli {
namespace {

struct Waiting {
    char* path;  // from malloc
    CaptionIdentity identity;
    bool is_recalled;  // only the size and the time of change are known
    int tries;         // that have failed
};

constexpr int kMostTries = 3;

/// A walk may read any number of captions; inside a unit no more than these can wait.
constexpr size_t kMostWaiting = 1024;

/// So many folders are synced one by one, more with all that their file system holds.
constexpr size_t kFew = 8;

/// The photo database's memory of the files whose values it has got: for each the length of its path, its
/// size, its time of change (s, ns) and its path.
constexpr const char kNoted[] = "captions_taken";
constexpr size_t kNotedEntrySize = kCaptionPathSize + 96;

using Text = std::unique_ptr<char, decltype(&free)>;

Waiting waiting[kMostWaiting];
size_t waiting_count = 0;
bool is_noted = false;

bool IsSameTime(const timespec& left, const timespec& right) {
    return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

bool IsRead(const Waiting& file, const CaptionIdentity& found) {
    const CaptionIdentity& read = file.identity;
    if (found.size != read.size || !IsSameTime(found.mtime, read.mtime)) return false;
    return file.is_recalled ||
           (found.device == read.device && found.inode == read.inode && IsSameTime(found.ctime, read.ctime));
}

/// False when it may be there still.
bool RemoveRead(const Waiting& file, bool is_one_of_few) {
    const AttributeFile caption(file.path);
    struct stat status;
    if (caption.Look(&status) != 0) return MeansAbsent(errno);
    if (!IsRead(file, CaptionIdentityOf(status))) return true;
    if (caption.Remove() != 0) return false;
    if (!is_one_of_few || !FolderSyncOf(file.path)) FileSystemWritten(status.st_dev, file.path);
    return true;
}

/// Takes the next entry of what was noted; null behind the last one.
const char* RecallOne(const char* text) {
    long long numbers[4];  // length of the path, size, seconds and nanoseconds
    for (long long& number : numbers) {
        char* end = nullptr;
        number = strtoll(text, &end, 10);
        if (end == text) return nullptr;
        text = end;
    }
    if (numbers[0] < 0 || *text++ != ' ') return nullptr;
    const auto length = static_cast<size_t>(numbers[0]);
    if (waiting_count == kMostWaiting || strnlen(text, length) < length) return nullptr;
    CaptionIdentity identity{};
    identity.size = numbers[1];
    identity.mtime.tv_sec = numbers[2];
    identity.mtime.tv_nsec = static_cast<long>(numbers[3]);
    char* path = strndup(text, length);
    if (path != nullptr) waiting[waiting_count++] = {path, identity, true, 0};
    return text + length;
}

}  // namespace

CaptionIdentity CaptionIdentityOf(const struct stat& status) {
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
}

void CaptionRemovalAdd(const char* path, const CaptionIdentity& identity) {
    if (waiting_count == kMostWaiting) CaptionRemovalsRun();
    if (waiting_count == kMostWaiting) return;
    char* copy = strdup(path);
    if (copy != nullptr) waiting[waiting_count++] = {copy, identity, false, 0};
}

void CaptionRemovalsRun() {
    if (waiting_count == 0) return;
    const int hardened = PhotoDBHarden();
    if (hardened > 0) return;
    const bool are_few = waiting_count <= kFew;
    size_t kept = 0;
    for (size_t i = 0; i < waiting_count; ++i) {
        Waiting& file = waiting[i];
        const bool is_done = hardened < 0 || RemoveRead(file, are_few) || ++file.tries == kMostTries;
        if (is_done)
            free(file.path);
        else
            waiting[kept++] = file;
    }
    waiting_count = kept;
    const bool are_synced = are_few || WrittenFileSystemsSync();
    if (!is_noted || hardened < 0 || kept > 0 || !are_synced) return;
    is_noted = false;
    PhotoDBSettingSet(kNoted, "");
}

void CaptionRemovalsNote() {
    if (waiting_count == 0) return;
    const Text text(static_cast<char*>(malloc(waiting_count * kNotedEntrySize)), &free);
    if (text == nullptr) return;
    char* end = text.get();
    for (size_t i = 0; i < waiting_count; ++i) {
        const Waiting& file = waiting[i];
        end += snprintf(end, kNotedEntrySize, "%zu %lld %lld %ld %s", strlen(file.path),
                        static_cast<long long>(file.identity.size),
                        static_cast<long long>(file.identity.mtime.tv_sec), file.identity.mtime.tv_nsec,
                        file.path);
    }
    is_noted = PhotoDBSettingSet(kNoted, text.get()) == 0;
}

void CaptionRemovalsRecall() {
    const size_t size = kMostWaiting * kNotedEntrySize;
    const Text text(static_cast<char*>(malloc(size)), &free);
    if (text == nullptr || PhotoDBSettingGet(kNoted, text.get(), static_cast<int>(size)) != 0) return;
    is_noted = text.get()[0] != '\0';
    for (const char* rest = text.get(); rest != nullptr;)
        rest = RecallOne(rest);
    CaptionRemovalsRun();
}

}  // namespace koli
