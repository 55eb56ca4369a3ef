#include "daemon/settings.h"

#include <cerrno>
#include <cstring>

#include "base/features.h"
#include "base/passing_error.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"
#include "platform/paths.h"

namespace koli {
namespace {

bool are_features_known = true;  // false: the last attempt to read them failed
bool is_charset_known = true;    // the same of the charset of old tags

/// Whether errno tells that a settings file can be read again later.
bool HasFailedForNow() {
    return errno != 0 && IsPassingError(errno);
}

/// False when the file cannot be read now; errno tells why.
bool ReadFeature(const char* key, int* feature) {
    const int is_on = BlKOLIFileCheckKeyValue(paths::kDefaults, key, "yes", 0) != 0 ? 1 : 0;
    if (is_on == 0 && HasFailedForNow()) return false;
    *feature = is_on;
    return true;
}

std::string Fault(const char* file) {
    return std::string(file) + ": " + strerror(errno);
}

}  // namespace

void FeaturesRead() {
    are_features_known =
        ReadFeature("supportvidora", &support_vidora) && ReadFeature("supportphoto", &support_photo);
}

void CharsetRead() {
    char name[64] = "";
    is_charset_known =
        KLIBFileGetKeyValue(paths::kConfig, "tagcharset", name, sizeof name, 0) >= 0 || !HasFailedForNow();
    if (is_charset_known) KOLITagCharsetSet(name);
}

std::string SettingsFault() {
    if (!are_features_known) FeaturesRead();
    if (!are_features_known) return Fault(paths::kDefaults);
    if (!is_charset_known) CharsetRead();
    if (!is_charset_known) return Fault(paths::kConfig);
    char value[2];
    const bool is_set = KLIBFileGetKeyValue(paths::kConfig, "database", value, sizeof value, 0) >= 0;
    return !is_set && HasFailedForNow() ? Fault(paths::kConfig) : "";
}

}  // namespace koli
