#include "index/record/stored_name.h"

#include <cstring>

#include "base/formats.h"
#include "base/metadata_folder.h"
#include "base/path_names.h"
#include "platform/koliindex.h"

namespace koli {

bool IsCompanion(const char* name) {
    return strncmp(name, "._", 2) == 0;
}

NameVerdict NameVerdictOf(const char* path) {
    const char* extension = KOLIIndexExtGet(path);
    if (extension == nullptr) return NameVerdict::kNoExtension;
    const Format* format = FormatFind(extension);
    if (format == nullptr) return NameVerdict::kUnknownExtension;
    if (IsCompanion(FileNameOf(path))) return NameVerdict::kCompanion;
    const bool is_picture = FormatStore(format->reader) == kStorePhoto;
    return is_picture && MentionsMetadataFolder(path) ? NameVerdict::kPictureInMetadata
                                                      : NameVerdict::kStored;
}

PhotoVerdict PhotoNameVerdict(const char* path) {
    if (MentionsMetadataFolder(path)) return PhotoVerdict::kInMetadata;
    return FileNameOf(path)[0] == '.' ? PhotoVerdict::kHidden : PhotoVerdict::kTaken;
}

PhotoVerdict PhotoSizeVerdict(int64_t size) {
    if (size <= 0) return PhotoVerdict::kEmpty;
    return size > kMaxPhotoSize ? PhotoVerdict::kTooLarge : PhotoVerdict::kTaken;
}

}  // namespace koli
