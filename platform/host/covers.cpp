// The cover store: the covers of DIR/NAME are DIR/@eaDir/NAME/coverINDEX.jpg and .png.
//
// "@eaDir" or a cover folder that is a symbolic link is never followed (base/held_folder.h), so that a link
// laid into a share cannot make the daemon make folders or remove files outside it.
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <string_view>

#include "base/directory_listing.h"
#include "base/held_folder.h"
#include "platform/host/ea_path.h"
#include "platform/koliindex.h"

using koli::DirectoryListing;
using koli::HeldFolder;

namespace {

constexpr mode_t kFolderMode = 0777;
constexpr size_t kIndexDigitsMax = 10;  // of an int

bool IsRealDirectory(const char* path) {
    struct stat status;
    return lstat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

const char* SuffixOf(int image_type) {
    switch (image_type) {
        case KOLI_COVER_JPEG:
            return "jpg";
        case KOLI_COVER_PNG:
            return "png";
        default:
            return nullptr;
    }
}

/// True for the names that GetCoverPath gives: "cover", a decimal number from 1 on, ".jpg" or ".png".
bool IsCoverName(std::string_view name) {
    constexpr std::string_view kPrefix = "cover";
    if (!name.starts_with(kPrefix) || !(name.ends_with(".jpg") || name.ends_with(".png"))) return false;
    name.remove_suffix(4);
    if (name.size() <= kPrefix.size()) return false;
    name.remove_prefix(kPrefix.size());
    return name.size() <= kIndexDigitsMax && name.front() != '0' &&
           name.find_first_not_of("0123456789") == std::string_view::npos;
}

bool IsCover(const HeldFolder& folder, const char* name) {
    struct stat status;
    return IsCoverName(name) && folder.Look(name, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

extern "C" {

int GetCoverFolder(const char* audio_path, char* folder, int size) {
    if (!koli::EaPath(audio_path, nullptr, folder, size)) return 0;
    // Most files have no cover folder, which one call tells.
    return IsRealDirectory(folder) && HeldFolder::OpenAttributes(folder).ok() ? 1 : 0;
}

void CleanOldCover(const char* folder) {
    errno = 0;
    if (folder == nullptr) return;
    const HeldFolder covers = HeldFolder::OpenAttributes(folder);
    DirectoryListing listing;
    if (!listing.Open(covers.Enter("."))) return;
    int error = 0;
    for (auto entry = listing.Next(); entry.name != nullptr; entry = listing.Next())
        if (IsCover(covers, entry.name) && covers.Remove(entry.name) != 0) error = errno;
    errno = error;
}

int GetCoverPath(const char* audio_path, char* cover_path, int size, int /*picture_type*/, int index,
                 int image_type) {
    const char* suffix = SuffixOf(image_type);
    if (cover_path == nullptr || size <= 0) return 0;
    cover_path[0] = '\0';
    if (suffix == nullptr || index < 1) return 0;

    char name[sizeof "cover.jpg" + kIndexDigitsMax];
    char folder[PATH_MAX];
    snprintf(name, sizeof name, "cover%d.%s", index, suffix);
    if (koli::EaPath(audio_path, nullptr, folder, sizeof folder) &&
        koli::EaPath(audio_path, name, cover_path, size) &&
        HeldFolder::OpenAttributes(folder, kFolderMode).ok())
        return 1;
    cover_path[0] = '\0';
    return 0;
}

}  // extern "C"
