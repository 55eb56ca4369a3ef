// The platform's folder of extended attributes, which stands in every folder and is never indexed.
#pragma once

#include <cstring>

namespace koli {

inline constexpr char kMetadataFolder[] = "@eaDir";

/// True when `text`, a path or a name, holds that name anywhere.
inline bool MentionsMetadataFolder(const char* text) {
    return strstr(text, kMetadataFolder) != nullptr;
}

}  // namespace koli
