// Questions about files, and text helpers.
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "base/foothold.h"
#include "base/path_names.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"

namespace {

bool Look(const char* path, struct stat* status) {
    return path != nullptr && koli::StatNear(path, status) == 0;
}

/// White space as isspace knows it in the C locale, whatever locale is set: text is bytes of any encoding.
constexpr const char kWhiteSpace[] = " \t\n\v\f\r";

bool IsWhiteSpace(char c) {
    return c != '\0' && strchr(kWhiteSpace, c) != nullptr;
}

}  // namespace

extern "C" {

int IsFileExist(const char* path, uint64_t* size) {
    struct stat status;
    if (!Look(path, &status) || !S_ISREG(status.st_mode)) return 0;
    if (size != nullptr) *size = static_cast<uint64_t>(status.st_size);
    return 1;
}

int IsDirExist(const char* path) {
    struct stat status;
    return Look(path, &status) && S_ISDIR(status.st_mode) ? 1 : 0;
}

int KLIBPathLook(const char* path) {
    struct stat status;
    if (path == nullptr) return KLIB_PATH_ABSENT;
    if (koli::StatNear(path, &status) != 0)
        return errno == ENOENT || errno == ENOTDIR ? KLIB_PATH_ABSENT : KLIB_PATH_UNKNOWN;
    if (S_ISREG(status.st_mode)) return KLIB_PATH_FILE;
    return S_ISDIR(status.st_mode) ? KLIB_PATH_DIRECTORY : KLIB_PATH_OTHER;
}

int BlKLIBFileExist(const char* path) {
    struct stat status;
    return Look(path, &status) ? 1 : 0;
}

void StringTrim(char* text) {
    if (text == nullptr) return;
    const char* first = text + strspn(text, kWhiteSpace);
    size_t length = strlen(first);
    while (length > 0 && IsWhiteSpace(first[length - 1]))
        --length;
    memmove(text, first, length);
    text[length] = '\0';
}

const char* KOLIIndexExtGet(const char* path) {
    if (path == nullptr) return nullptr;
    const char* dot = strrchr(koli::FileNameOf(path), '.');
    return dot != nullptr ? dot + 1 : nullptr;
}

}  // extern "C"
