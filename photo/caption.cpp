#include "photo/caption.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "base/held_folder.h"
#include "base/later_renames.h"
#include "base/log.h"
#include "base/path_names.h"
#include "base/regular_file.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_index";

struct CloseFile {
    void operator()(FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

/// Captions lie in the shares, where people put what they like: a link is not followed, as its target's first
/// line would be shown, and a FIFO does not block.
File OpenCaption(const char* path) {
    return File(StreamOf(AttributeFile(path).Open(O_RDONLY | O_NONBLOCK | O_NOCTTY)));
}

int CaptionGet(const char* path, const char* stream, char* field, size_t field_size, CaptionHold& hold) {
    char text[kCaptionSize] = {};
    if (CaptionRead(path, stream, text, sizeof text, hold) != 0) return 0;
    CopyText(field, field_size, text);
    return 1;
}

}  // namespace

void CaptionHold::Release() {
    for (; count_ > 0; --count_)
        CaptionRemovalAdd(paths_[count_ - 1], identities_[count_ - 1]);
}

void CaptionHold::Note(const char* caption_path, const CaptionIdentity& identity) {
    if (count_ == kMostCaptions) return;
    CopyText(paths_[count_], kCaptionPathSize, caption_path);
    identities_[count_++] = identity;
}

void CaptionHold::NoteUnreadable(int error) {
    reading_.Trouble("a caption cannot be read", error);
    has_unreadable_ = true;
}

int CaptionRead(const char* path, const char* stream, char* buffer, int size, CaptionHold& hold) {
    if (path == nullptr || stream == nullptr || buffer == nullptr || size <= 0) {
        KOLI_LOG_COLON("Bad parameters.");
        return -1;
    }
    char caption_path[kCaptionPathSize];
    if (KOLIEAPath(path, stream, caption_path, sizeof caption_path) != 0) {
        KOLI_LOG_COLON("KOLIEAPath() failed.");
        return -1;
    }
    if (KLIBPathLook(caption_path) == KLIB_PATH_ABSENT) return -1;
    // What is handed over for a picture whose own row is still on its way, or in whose place there is another
    // one's, waits for the requests that rename them.
    if (IsBroughtLater(path) || IsRenamedLater(path)) return -1;
    const File file = OpenCaption(caption_path);
    struct stat status;
    if (file == nullptr || fstat(fileno(file.get()), &status) != 0) {
        KOLI_LOG_COLON("failed to open file %s.", caption_path);
        hold.NoteUnreadable(errno);
        return -1;
    }
    buffer[0] = '\0';
    if (fgets(buffer, size, file.get()) == nullptr && feof(file.get()) == 0) {
        KOLI_LOG_COLON("fgets() failed.");
        hold.NoteUnreadable(errno);
        return -1;
    }
    hold.Note(caption_path, CaptionIdentityOf(status));
    return buffer[0] == '\0' || buffer[0] == '\n' ? -1 : 0;
}

bool CaptionWaits(const char* path) {
    for (const char* stream : {kTitleStream, kDescriptionStream}) {
        char caption_path[kCaptionPathSize];
        if (KOLIEAPath(path, stream, caption_path, sizeof caption_path) == 0 &&
            BlKLIBFileExist(caption_path) != 0)
            return true;
    }
    return false;
}

int CaptionTitleGet(const char* path, PhotoRecord* record, CaptionHold& hold) {
    if (path == nullptr || record == nullptr) {
        KOLI_LOG_COLON("Bad parameters.");
        return 0;
    }
    return CaptionGet(path, kTitleStream, record->title, sizeof record->title, hold);
}

int CaptionDescGet(const char* path, PhotoRecord* record, CaptionHold& hold) {
    if (path == nullptr || record == nullptr) {
        KOLI_LOG_COLON("Bad parameters.");
        return 0;
    }
    return CaptionGet(path, kDescriptionStream, record->description, sizeof record->description, hold);
}

}  // namespace koli
