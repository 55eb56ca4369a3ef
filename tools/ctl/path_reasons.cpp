#include "tools/ctl/path_reasons.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>

#include "base/folder_way.h"
#include "base/known_path.h"
#include "base/media_info.h"
#include "base/metadata_folder.h"
#include "index/record/share_path.h"
#include "index/record/stored_name.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"
#include "platform/paths.h"
#include "tools/ctl/request_line.h"

namespace koli::ctl {
namespace {

/// The parts of a path that stand for `top` and each folder on the way from there, the whole path included.
std::vector<std::string> PartsBelow(const std::string& top, const std::string& path) {
    std::vector<std::string> parts;
    for (size_t end = top == "/" ? 0 : top.size(); end < path.size();) {
        parts.push_back(end == 0 ? "/" : path.substr(0, end));
        end = std::min(path.find('/', end + 1), path.size());
    }
    parts.push_back(path);
    return parts;
}

bool HasComponent(const std::string& path, const std::string& name) {
    return (path + '/').find('/' + name + '/') != std::string::npos;
}

void AddNameReason(const std::string& path, Reasons* reasons) {
    switch (NameVerdictOf(path.c_str())) {
        case NameVerdict::kStored:
            return;
        case NameVerdict::kNoExtension:
            return reasons->push_back(
                {"no_extension", "its name has no extension, by which files are told apart"});
        case NameVerdict::kUnknownExtension:
            return reasons->push_back({"unknown_extension", std::string("files with the extension \"") +
                                                                KOLIIndexExtGet(path.c_str()) +
                                                                "\" are not indexed"});
        case NameVerdict::kCompanion:
            return reasons->push_back(
                {"companion", "its name begins with \"._\": it goes with another file and is not indexed"});
        case NameVerdict::kPictureInMetadata:
            if (!HasComponent(path, kMetadataFolder))
                reasons->push_back({"metadata", "pictures with \"@eaDir\" in their path are not indexed"});
    }
}

/// The share that holds `path`; "" for none.
std::string ShareOf(const std::string& path) {
    for (const std::string& share : ShareFolders("all"))
        if (IsAtOrBelow(path, share)) return share;
    return "";
}

void AddPhotoPlaceReason(const std::string& path, Reasons* reasons) {
    if (IsPhotoSharePath(path.c_str()) != 0) return;
    const std::vector<std::string> shares = ShareFolders("photo");
    if (!shares.empty() && IsAtOrBelow(path, shares[0]))
        reasons->push_back(
            {"volume_name",
             "the photo library takes only volumes with a name of seven characters, such as /volume1"});
    else
        reasons->push_back({"not_in_photo_share", "the photo library takes only what is in the photo share"});
}

void AddPhotoReason(PhotoVerdict verdict, Reasons* reasons) {
    switch (verdict) {
        case PhotoVerdict::kTaken:
        case PhotoVerdict::kInMetadata:  // which the media store leaves out, too
            return;
        case PhotoVerdict::kHidden:
            return reasons->push_back(
                {"hidden", "its name begins with a '.': the photo library takes no hidden files"});
        case PhotoVerdict::kEmpty:
            return reasons->push_back({"empty", "it is empty, which the photo library does not take"});
        case PhotoVerdict::kTooLarge:
            return reasons->push_back({"too_large", "it is too large for the photo library: more than " +
                                                        std::to_string(kMaxPhotoSize) + " bytes"});
    }
}

}  // namespace

Reasons RuleReasons(const std::string& path, bool is_folder) {
    Reasons reasons;
    if (path.size() >= kPathSize)
        reasons.push_back(
            {"too_long", "its path is longer than " + std::to_string(kPathSize - 1) + " bytes"});
    if (HasComponent(path, kMetadataFolder))
        reasons.push_back({"metadata", "@eaDir holds covers and captions, and is not indexed"});
    if (IsRecycleBinPath(path.c_str()) != 0)
        reasons.push_back({"bin", std::string(kRecycleFolder) + " is the share's bin, and is not indexed"});
    if (!is_folder) AddNameReason(path, &reasons);
    return reasons;
}

Reasons DiskReasons(const std::string& path) {
    const KnownPath known(path.c_str());
    struct stat link;
    switch (known.kind()) {
        case PathKind::kFile:
        case PathKind::kDirectory:
            return {};
        case PathKind::kOther:
            return {{"no_file", "it is neither a file nor a folder"}};
        case PathKind::kUnknown:
            known.status();  // for errno
            return {{"unreadable", std::string("it cannot be looked at: ") + strerror(errno)}};
        case PathKind::kAbsent:
            break;
    }
    for (const std::string& part : PartsBelow("/", path)) {
        if (KLIBPathLook(part.c_str()) != KLIB_PATH_ABSENT) continue;
        if (lstat(part.c_str(), &link) == 0)
            return {{"dangling_link", (part == path ? "it" : part) + " is a link that leads nowhere"}};
        return {{"absent", part == path ? "there is no such file or folder" : "there is no folder " + part}};
    }
    return {{"absent", "there is no such file or folder"}};
}

Reasons LinkReasons(const std::string& path) {
    const std::string share = ShareOf(path);
    if (share.empty()) return {};
    std::deque<FolderWay> ways;  // which point to each other
    for (const std::string& part : PartsBelow(share, path)) {
        struct stat folder;
        if (stat(part.c_str(), &folder) != 0 || !S_ISDIR(folder.st_mode)) break;
        const FolderWay* const above = ways.empty() ? nullptr : &ways.back();
        if (IsOnTheWay(above, folder.st_dev, folder.st_ino))
            return {{"link_loop", part + " is a link to a folder above it, which is not entered again"}};
        const bool is_link = above != nullptr && IsLink(DT_UNKNOWN, part.c_str());
        if (is_link && !LinkLimit::IsFree(*above))
            return {{"deep_link", part + " is a link below other links, of which not all are followed"}};
        ways.push_back(FolderWayTo(above, folder.st_dev, folder.st_ino, is_link));
    }
    return {};
}

Reasons ShareReasons(const std::string& path) {
    if (!ShareOf(path).empty()) return {};
    Reasons reasons;
    for (const std::string link : {paths::kMusicShare, paths::kVideoShare, paths::kPhotoShare}) {
        const std::string name = link.substr(link.rfind('/') + 1);
        if (HasComponent(path, name) && ShareFolders(name).empty())
            reasons.push_back({"share_link_missing",
                               "the share's link " + link + " is missing (koliindexctl setup makes it)"});
    }
    const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), free);
    if (real != nullptr && !ShareOf(real.get()).empty())
        reasons.push_back({"other_path", std::string("its path in the share is another one: ") + real.get()});
    else
        reasons.push_back({"in_no_share", "it lies in no share: only koliindexctl add has it indexed"});
    return reasons;
}

Reasons PhotoReasons(const std::string& path) {
    struct stat file;
    Reasons reasons;
    if (BlKOLIFileCheckKeyValue(paths::kDefaults, "supportphoto", "yes", 0) == 0)
        reasons.push_back(
            {"photo_library_off",
             std::string("the photo library is switched off (supportphoto in ") + paths::kDefaults + ")"});
    AddPhotoPlaceReason(path, &reasons);
    if (BlKOLIIndexIsPhotoOnWebFile(path.c_str()) == 0)
        reasons.push_back({"not_for_browsers", "the photo library takes only what a browser can show"});
    AddPhotoReason(PhotoNameVerdict(path.c_str()), &reasons);
    if (stat(path.c_str(), &file) == 0) AddPhotoReason(PhotoSizeVerdict(file.st_size), &reasons);
    return reasons;
}

Reasons AlbumReasons(const std::string& path) {
    const size_t at = IsPhotoSharePath(path.c_str()) != 0 ? path.find("/.") : std::string::npos;
    if (at == std::string::npos) return {};
    const std::string name = path.substr(at + 1, path.find('/', at + 1) - at - 1);
    return {{"hidden", "folders that are hidden, or in hidden ones, become no albums: " + name}};
}

}  // namespace koli::ctl
