#include "platform/host/ea_path.h"

#include <cstdio>
#include <string_view>

#include "base/metadata_folder.h"
#include "platform/koliindex.h"

namespace koli {

bool EaPath(const char* path, const char* leaf, char* buffer, int size) {
    if (buffer == nullptr || size <= 0) return false;
    buffer[0] = '\0';
    std::string_view name(path != nullptr ? path : "");
    while (name.ends_with('/'))
        name.remove_suffix(1);
    const size_t slash = name.rfind('/');
    const size_t folder = slash == std::string_view::npos ? 0 : slash + 1;  // length of DIR and its '/'
    name.remove_prefix(folder);
    if (name.empty() || name == "." || name == "..") return false;

    const int length = snprintf(
        buffer, static_cast<size_t>(size), "%.*s%s/%.*s%s%s", static_cast<int>(folder), path, kMetadataFolder,
        static_cast<int>(name.size()), name.data(), leaf != nullptr ? "/" : "", leaf != nullptr ? leaf : "");
    if (length >= 0 && length < size) return true;
    buffer[0] = '\0';
    return false;
}

}  // namespace koli

extern "C" int KOLIEAPath(const char* path, const char* stream, char* buffer, int size) {
    return stream != nullptr && koli::EaPath(path, stream, buffer, size) ? 0 : -1;
}
