// Questions about files, and text helpers.
#include <cstring>

#include "base/known_path.h"
#include "base/path_names.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"

using koli::KnownPath;
using koli::PathKind;

static_assert(static_cast<int>(PathKind::kUnknown) == KLIB_PATH_UNKNOWN &&
              static_cast<int>(PathKind::kAbsent) == KLIB_PATH_ABSENT &&
              static_cast<int>(PathKind::kFile) == KLIB_PATH_FILE &&
              static_cast<int>(PathKind::kDirectory) == KLIB_PATH_DIRECTORY &&
              static_cast<int>(PathKind::kOther) == KLIB_PATH_OTHER);

namespace {

/// White space as isspace knows it in the C locale, whatever locale is set: text is bytes of any encoding.
constexpr const char kWhiteSpace[] = " \t\n\v\f\r";

bool IsWhiteSpace(char c) {
    return c != '\0' && strchr(kWhiteSpace, c) != nullptr;
}

}  // namespace

extern "C" {

int IsFileExist(const char* path, uint64_t* size) {
    const KnownPath known(path);
    const struct stat* file = known.file();
    if (file != nullptr && size != nullptr) *size = static_cast<uint64_t>(file->st_size);
    return file != nullptr ? 1 : 0;
}

int IsDirExist(const char* path) {
    return KnownPath(path).IsDirectory() ? 1 : 0;
}

int KLIBPathLook(const char* path) {
    return static_cast<int>(KnownPath(path).kind());
}

int BlKLIBFileExist(const char* path) {
    return KnownPath(path).status() != nullptr ? 1 : 0;
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
