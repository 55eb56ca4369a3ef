#include "index/index.h"

#include <cstring>
#include <iterator>

#include "audio/aiff.h"
#include "audio/flac.h"
#include "audio/music.h"
#include "base/formats.h"
#include "base/log.h"
#include "index/aac.h"
#include "index/directory_record.h"
#include "index/playlist.h"
#include "index/record/index_mode.h"
#include "index/record/stored_name.h"
#include "index/record/util.h"
#include "photo/photo.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"
#include "video/media.h"
#include "video/mp4.h"
#include "video/video.h"

namespace koli {
namespace {

constexpr const char kModule[] = "index";

/// The appliance's log catalogue: category, level and number of "metadata could not be parsed".
constexpr int kEventCategory = 2;
constexpr int kEventLevel = 3;
constexpr unsigned kEventUnparsable = 0x11B00510;

constexpr char kUnparsed[] = "the metadata could not be parsed";

/// By FormatReader. AAC and FLAC share the generic music removal.
constexpr IndexHandler kHandlers[] = {
    {MusicFileAdd, MusicFileDelete},        // kMp3
    {MediaMusicAdd, MediaMusicDelete},      // kMusicProbe
    {Mp4Add, Mp4Delete},                    // kMp4
    {AacFileAdd, MediaMusicDelete},         // kAac
    {FlacFileAdd, MediaMusicDelete},        // kFlac
    {AiffFileAdd, AiffFileDelete},          // kAiff
    {MediaMusicSave, MediaMusicDelete},     // kMusicName
    {PlaylistFileAdd, PlaylistFileDelete},  // kPlaylist
    {MediaVideoAdd, MediaVideoDelete},      // kVideoProbe
    {VideoAdd, VideoDelete},                // kVideoCd
    {MediaVideoSave, MediaVideoDelete},     // kVideoName
    {PhotoMediaAdd, PhotoMediaDelete},      // kPicture
};
static_assert(std::size(kHandlers) == static_cast<size_t>(FormatReader::kCount));

/// The entries of directories that are gone are removed by the walk, not here.
int IndexOneDirectory(const KnownPath& path, int mode) {
    if (mode == kModeAdd) {
        DirectoryInfoSave(path);
    } else if (mode != kModeDelete) {
        KOLI_LOG("Bad mode(%d)!! This should never happen.", mode);
    }
    return 0;
}

/// Stores a file that brings the daemon down by its name alone; one that does so even then is left alone.
int AddUnopened(const KnownPath& path, PastReading past) {
    if (past == PastReading::kDownUnopened) {
        KOLI_LOG("The file has brought the daemon down unopened, too. It is left alone: %s", path.text());
        return -1;
    }
    KOLI_LOG("The file has brought the daemon down twice and is not opened until it changes: %s",
             path.text());
    MediaInfo record{};
    if (MediaInfoFill(path, &record) != 0) return -1;
    const StoreType type = FormatStore(FormatFind(KOLIIndexExtGet(path.text()))->reader);
    const int result =
        SaveMediaInfo(type, record, -1, LogSite(kModule), "Failed to save media info to database. [%s]");
    KOLIProblemSet(path.text(), kBroughtDown, 0);
    return result;
}

/// What could not be stored keeps the problem that it had.
void TellProblem(const FileReading& reading, int result, bool is_unparsed) {
    const Failure& failure = reading.failure();
    if (is_unparsed || failure.kind >= FailureKind::kTrouble) {
        KOLIProblemSet(reading.path(), *failure.reason != '\0' ? failure.reason : kUnparsed,
                       failure.kind == FailureKind::kPassing ? KOLI_PROBLEM_PASSES : 0);
    } else if (result == 0) {
        KOLIProblemClear(reading.path(), 0);
    }
}

int AddFile(const KnownPath& known, const IndexHandler& handler) {
    const char* const path = known.text();
    const char* slash = strrchr(path, '/');
    if (slash == nullptr || IsCompanion(slash + 1)) return -1;

    FileReading reading(path, KOLIDBTick);  // nothing may keep the databases locked
    if (reading.past() != PastReading::kNothing) return AddUnopened(known, reading.past());
    const int result = handler.add(known, reading);
    const bool is_unparsed = result == 1 || (result == 0 && !reading.IsWhole());
    TellProblem(reading, result, is_unparsed);
    if (!is_unparsed) return result;
    KOLI_LOG_COLON("Failed to parse media metadata of file [%s].", path);
    KOLILogSet1(kEventCategory, kEventLevel, kEventUnparsable, path, "", "", "");
    return -1;
}

}  // namespace

const IndexHandler* IndexHandlerFind(const char* ext) {
    const Format* format = FormatFind(ext);
    return format == nullptr ? nullptr : &kHandlers[static_cast<size_t>(format->reader)];
}

bool IndexIsProbed(const char* name) {
    const Format* format = FormatFind(KOLIIndexExtGet(name));
    return format != nullptr && !IsCompanion(name) &&
           (format->reader == FormatReader::kVideoProbe || format->reader == FormatReader::kMusicProbe);
}

int IndexOnePath(const KnownPath& path, int mode) {
    if (path.IsEmpty() || (mode != kModeAdd && mode != kModeDelete)) {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    if (path.IsDirectory()) return IndexOneDirectory(path, mode);
    const char* extension = KOLIIndexExtGet(path.text());
    if (extension == nullptr) return -1;
    const IndexHandler* handler = IndexHandlerFind(extension);
    if (handler == nullptr) return 0;
    return mode == kModeDelete ? handler->remove(path.text()) : AddFile(path, *handler);
}

}  // namespace koli
