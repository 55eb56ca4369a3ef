// The platform's folder of extended attributes, "@eaDir", which stands in every folder and is never indexed.
#pragma once

#include <cstring>

namespace koli {

/// True when `text`, a path or a name, holds "@eaDir" anywhere.
inline bool MentionsMetadataFolder(const char* text) {
    return strstr(text, "@eaDir") != nullptr;
}

}  // namespace koli
