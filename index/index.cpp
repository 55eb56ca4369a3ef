#include "index/index.h"

#include <strings.h>

#include <cstring>
#include <iterator>

#include "audio/aiff.h"
#include "audio/flac.h"
#include "audio/music.h"
#include "base/log.h"
#include "base/reading.h"
#include "index/aac.h"
#include "index/directory_record.h"
#include "index/index_mode.h"
#include "index/playlist.h"
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
    {"mp3", MusicFileAdd, MusicFileDelete},
    {"mp1", MediaMusicAdd, MediaMusicDelete},
    {"mp2", MediaMusicAdd, MediaMusicDelete},
    {"mpa", MediaMusicAdd, MediaMusicDelete},
    {"wma", MediaMusicAdd, MediaMusicDelete},
    {"wav", MediaMusicAdd, MediaMusicDelete},
    {"ogg", MediaMusicAdd, MediaMusicDelete},
    {"m4a", Mp4Add, Mp4Delete},
    {"aac", AacFileAdd, MediaMusicDelete},
    {"ac3", MediaMusicAdd, MediaMusicDelete},
    {"ram", MediaMusicAdd, MediaMusicDelete},
    {"ra", MediaMusicAdd, MediaMusicDelete},
    {"m4p", Mp4Add, Mp4Delete},
    {"flac", FlacFileAdd, MediaMusicDelete},
    {"aiff", AiffFileAdd, AiffFileDelete},
    {"aif", AiffFileAdd, AiffFileDelete},
    {"pcm", MediaMusicSave, MediaMusicDelete},
    {"m4b", Mp4Add, Mp4Delete},
    {"ape", MediaMusicAdd, MediaMusicDelete},
    {"m3u", PlaylistFileAdd, PlaylistFileDelete},
    {"wpl", PlaylistFileAdd, PlaylistFileDelete},
    {"avi", MediaVideoAdd, MediaVideoDelete},
    {"mpg", MediaVideoAdd, MediaVideoDelete},
    {"mpeg", MediaVideoAdd, MediaVideoDelete},
    {"dat", VideoAdd, VideoDelete},
    {"asf", MediaVideoAdd, MediaVideoDelete},
    {"wmv", MediaVideoAdd, MediaVideoDelete},
    {"vob", MediaVideoAdd, MediaVideoDelete},
    {"mov", MediaVideoAdd, MediaVideoDelete},
    {"rm", MediaVideoAdd, MediaVideoDelete},
    {"rmvb", MediaVideoAdd, MediaVideoDelete},
    {"mp4", MediaVideoAdd, MediaVideoDelete},
    {"divx", MediaVideoAdd, MediaVideoDelete},
    {"xvid", MediaVideoAdd, MediaVideoDelete},
    {"flv", MediaVideoAdd, MediaVideoDelete},
    {"mkv", MediaVideoAdd, MediaVideoDelete},
    {"ts", MediaVideoAdd, MediaVideoDelete},
    {"m2ts", MediaVideoAdd, MediaVideoDelete},
    {"m2t", MediaVideoAdd, MediaVideoDelete},
    {"mts", MediaVideoAdd, MediaVideoDelete},
    {"m4v", MediaVideoAdd, MediaVideoDelete},
    {"3gp", MediaVideoAdd, MediaVideoDelete},
    {"3g2", MediaVideoAdd, MediaVideoDelete},
    {"qt", MediaVideoAdd, MediaVideoDelete},
    {"swf", MediaVideoAdd, MediaVideoDelete},
    {"dvr-ms", MediaVideoAdd, MediaVideoDelete},
    {"iso", MediaVideoSave, MediaVideoDelete},
    {"ifo", MediaVideoSave, MediaVideoDelete},
    {"srt", MediaVideoSave, MediaVideoDelete},
    {"ass", MediaVideoSave, MediaVideoDelete},
    {"ssa", MediaVideoSave, MediaVideoDelete},
    {"idx", MediaVideoSave, MediaVideoDelete},
    {"sub", MediaVideoSave, MediaVideoDelete},
    {"smi", MediaVideoSave, MediaVideoDelete},
    {"psb", MediaVideoSave, MediaVideoDelete},
    {"trp", MediaVideoAdd, MediaVideoDelete},
    {"tp", MediaVideoAdd, MediaVideoDelete},
    {"jpg", PhotoMediaAdd, PhotoMediaDelete},
    {"jpeg", PhotoMediaAdd, PhotoMediaDelete},
    {"jpe", PhotoMediaAdd, PhotoMediaDelete},
    {"bmp", PhotoMediaAdd, PhotoMediaDelete},
    {"gif", PhotoMediaAdd, PhotoMediaDelete},
    {"ico", PhotoMediaAdd, PhotoMediaDelete},
    {"png", PhotoMediaAdd, PhotoMediaDelete},
    {"psd", PhotoMediaAdd, PhotoMediaDelete},
    {"tif", PhotoMediaAdd, PhotoMediaDelete},
    {"tiff", PhotoMediaAdd, PhotoMediaDelete},
    {"ufo", PhotoMediaAdd, PhotoMediaDelete},
    {nullptr, nullptr, nullptr},
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

int AddFile(const char* path, const IndexHandler& handler) {
    const char* slash = strrchr(path, '/');
    if (slash == nullptr || strncmp(slash + 1, "._", 2) == 0) return -1;

    LogFirstForget();           // the log's first line from here on tells why, if the file cannot be parsed
    reading_tick = KOLIDBTick;  // nothing may keep the databases locked
    ReadingBegin(path);
    const int result = handler.add(path);
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
