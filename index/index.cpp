#include "index/index.h"

#include <strings.h>

#include <cstring>
#include <iterator>

#include "audio/aiff.h"
#include "audio/flac.h"
#include "audio/music.h"
#include "base/file_reading.h"
#include "base/log.h"
#include "base/reading.h"
#include "index/aac.h"
#include "index/directory_record.h"
#include "index/index_mode.h"
#include "index/playlist.h"
#include "index/util.h"
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

/// Searched from the top, the first match wins.  "mp4" is video although "m4a" and its like go through the
/// MP4 reader as music; AAC and FLAC share the generic music removal; disc images and subtitles are stored as
/// video without being opened.
constexpr IndexHandler kHandlers[] = {
    {"mp3", kStoreMusic, MusicFileAdd, MusicFileDelete},
    {"mp1", kStoreMusic, MediaMusicAdd, MediaMusicDelete},
    {"mp2", kStoreMusic, MediaMusicAdd, MediaMusicDelete},
    {"mpa", kStoreMusic, MediaMusicAdd, MediaMusicDelete},
    {"wma", kStoreMusic, MediaMusicAdd, MediaMusicDelete},
    {"wav", kStoreMusic, MediaMusicAdd, MediaMusicDelete},
    {"ogg", kStoreMusic, MediaMusicAdd, MediaMusicDelete},
    {"m4a", kStoreMusic, Mp4Add, Mp4Delete},
    {"aac", kStoreMusic, AacFileAdd, MediaMusicDelete},
    {"ac3", kStoreMusic, MediaMusicAdd, MediaMusicDelete},
    {"ram", kStoreMusic, MediaMusicAdd, MediaMusicDelete},
    {"ra", kStoreMusic, MediaMusicAdd, MediaMusicDelete},
    {"m4p", kStoreMusic, Mp4Add, Mp4Delete},
    {"flac", kStoreMusic, FlacFileAdd, MediaMusicDelete},
    {"aiff", kStoreMusic, AiffFileAdd, AiffFileDelete},
    {"aif", kStoreMusic, AiffFileAdd, AiffFileDelete},
    {"pcm", kStoreMusic, MediaMusicSave, MediaMusicDelete},
    {"m4b", kStoreMusic, Mp4Add, Mp4Delete},
    {"ape", kStoreMusic, MediaMusicAdd, MediaMusicDelete},
    {"m3u", kStorePlaylist, PlaylistFileAdd, PlaylistFileDelete},
    {"wpl", kStorePlaylist, PlaylistFileAdd, PlaylistFileDelete},
    {"avi", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"mpg", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"mpeg", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"dat", kStoreVideo, VideoAdd, VideoDelete},
    {"asf", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"wmv", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"vob", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"mov", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"rm", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"rmvb", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"mp4", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"divx", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"xvid", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"flv", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"mkv", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"ts", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"m2ts", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"m2t", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"mts", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"m4v", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"3gp", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"3g2", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"qt", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"swf", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"dvr-ms", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"iso", kStoreVideo, MediaVideoSave, MediaVideoDelete},
    {"ifo", kStoreVideo, MediaVideoSave, MediaVideoDelete},
    {"srt", kStoreVideo, MediaVideoSave, MediaVideoDelete},
    {"ass", kStoreVideo, MediaVideoSave, MediaVideoDelete},
    {"ssa", kStoreVideo, MediaVideoSave, MediaVideoDelete},
    {"idx", kStoreVideo, MediaVideoSave, MediaVideoDelete},
    {"sub", kStoreVideo, MediaVideoSave, MediaVideoDelete},
    {"smi", kStoreVideo, MediaVideoSave, MediaVideoDelete},
    {"psb", kStoreVideo, MediaVideoSave, MediaVideoDelete},
    {"trp", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"tp", kStoreVideo, MediaVideoAdd, MediaVideoDelete},
    {"jpg", kStorePhoto, PhotoMediaAdd, PhotoMediaDelete},
    {"jpeg", kStorePhoto, PhotoMediaAdd, PhotoMediaDelete},
    {"jpe", kStorePhoto, PhotoMediaAdd, PhotoMediaDelete},
    {"bmp", kStorePhoto, PhotoMediaAdd, PhotoMediaDelete},
    {"gif", kStorePhoto, PhotoMediaAdd, PhotoMediaDelete},
    {"ico", kStorePhoto, PhotoMediaAdd, PhotoMediaDelete},
    {"png", kStorePhoto, PhotoMediaAdd, PhotoMediaDelete},
    {"psd", kStorePhoto, PhotoMediaAdd, PhotoMediaDelete},
    {"tif", kStorePhoto, PhotoMediaAdd, PhotoMediaDelete},
    {"tiff", kStorePhoto, PhotoMediaAdd, PhotoMediaDelete},
    {"ufo", kStorePhoto, PhotoMediaAdd, PhotoMediaDelete},
    {nullptr, 0, nullptr, nullptr},
};
static_assert(std::size(kHandlers) == 68 + 1);

bool IsBadCall(const char* path, int mode) {
    return path == nullptr || *path == '\0' || (mode != kModeAdd && mode != kModeDelete);
}

/// The entries of directories that are gone are removed by the walk, not here.
int IndexOneDirectory(const char* path, int mode) {
    if (mode == kModeAdd) {
        DirectoryInfoSave(path);
    } else if (mode != kModeDelete) {
        KOLI_LOG("%s (%d) Bad mode(%d)!! This should never happen.", mode);
    }
    return 0;
}

/// Stores a file that brings the daemon down by its name alone; one that does so even then is left alone.
int AddUnopened(const char* path, const IndexHandler& handler, PastReading past) {
    if (past == PastReading::kDownUnopened) {
        KOLI_LOG("%s (%d) The file has brought the daemon down unopened, too. It is left alone: %s", path);
        return -1;
    }
    KOLI_LOG("%s (%d) %s: %s", kBroughtDown, path);
    MediaInfo record{};
    if (MediaInfoFill(path, &record) != 0) return -1;
    const int result = SaveMediaInfo(handler.type, record, -1, LogSite(kModule),
                                     "%s (%d) Failed to save media info to database. [%s]");
    KOLIProblemSet(path, kBroughtDown, 0);
    return result;
}

int AddFile(const char* path, const IndexHandler& handler) {
    const char* slash = strrchr(path, '/');
    if (slash == nullptr || strncmp(slash + 1, "._", 2) == 0) return -1;

    LogFirstForget();           // the log's first line from here on tells why, if the file cannot be parsed
    reading_tick = KOLIDBTick;  // nothing may keep the databases locked
    const FileReading reading(path);
    if (reading.past() != PastReading::kNothing) return AddUnopened(path, handler, reading.past());
    const int result = handler.add(path);
    if (*reading.trouble() != '\0')
        KOLIProblemSet(path, reading.trouble(), reading.IsPassing() ? KOLI_PROBLEM_PASSES : 0);
    if (result < 0 || (result == 0 && ReadingIsWhole())) return result;
    KOLI_LOG("%s:%d Failed to parse media metadata of file [%s].", path);
    KOLILogSet1(kEventCategory, kEventLevel, kEventUnparsable, path, "", "", "");
    return -1;
}

}  // namespace

const IndexHandler* IndexHandlerFind(const char* ext) {
    if (ext == nullptr) return nullptr;
    // Setting bit 5 turns an upper-case letter into its lower-case one and leaves digits alone: a cheap first
    // look, asked once per row and file.
    const int first = static_cast<unsigned char>(ext[0]) | 0x20;
    for (const IndexHandler* row = kHandlers; row->extension != nullptr; ++row)
        if (row->extension[0] == first && strcasecmp(row->extension, ext) == 0) return row;
    return nullptr;
}

int IndexOnePath(const char* path, int mode) {
    if (!IsBadCall(path, mode) && IsDirExist(path) != 0) return IndexOneDirectory(path, mode);
    return IndexOneFile(path, mode);
}

int IndexOneFile(const char* path, int mode) {
    if (IsBadCall(path, mode)) {
        KOLI_LOG("%s (%d) Bad parameter.");
        return -1;
    }
    const char* extension = KOLIIndexExtGet(path);
    if (extension == nullptr) return -1;
    const IndexHandler* handler = IndexHandlerFind(extension);
    if (handler == nullptr) return 0;
    return mode == kModeDelete ? handler->remove(path) : AddFile(path, *handler);
}

}  // namespace koli
