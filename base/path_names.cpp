#include "base/path_names.h"

#include <cstring>

namespace koli {

const char* FileNameOf(const char* path) {
    const char* slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

void CopyText(char* field, size_t size, const char* text) {
    if (size == 0) return;
    const size_t length = strnlen(text, size - 1);
    memcpy(field, text, length);
    field[length] = '\0';
}

void TitleFromPath(const char* path, char* field, size_t size) {
    CopyText(field, size, FileNameOf(path));
    if (char* dot = strrchr(field, '.'); dot != nullptr) *dot = '\0';
}

bool AlbumFromPath(const char* path, char* field, size_t size) {
    field[0] = '\0';
    const char* last = strrchr(path, '/');
    if (last == nullptr || last == path) return true;
    const char* previous = last - 1;
    while (previous > path && *previous != '/')
        --previous;
    if (*previous != '/') return true;

    CopyText(field, size, previous + 1);
    char* slash = strrchr(field, '/');
    if (slash == nullptr) return false;
    *slash = '\0';
    return true;
}

}  // namespace koli
