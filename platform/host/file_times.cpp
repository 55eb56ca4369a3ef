#include "platform/host/file_times.h"

#include "base/known_path.h"
#include "platform/koliindex.h"

namespace {

void Clear(char* text, int size) {
    if (text != nullptr && size > 0) text[0] = '\0';
}

/// A time zone that the machine has got meanwhile counts from the next second on; localtime_r alone would
/// keep the old one.  Its file is not looked at for each picture and song.
void LookAtZone() {
    static time_t looked = 0;
    const time_t now = time(nullptr);
    if (now != looked) tzset();
    looked = now;
}

}  // namespace

void koli::host::WriteLocalTime(time_t when, char* text, int size) {
    Clear(text, size);
    LookAtZone();
    struct tm local;
    if (text == nullptr || size <= 0 || localtime_r(&when, &local) == nullptr) return;
    if (strftime(text, static_cast<size_t>(size), "%Y-%m-%d %H:%M:%S", &local) == 0) text[0] = '\0';
}

extern "C" {

void KOLIIndexTimeText(int64_t when, char* text, int size) {
    koli::host::WriteLocalTime(when, text, size);
}

int KOLIIndexCTimeMTimeGet(const char* path, char* ctime, int ctime_size, char* mtime, int mtime_size) {
    const koli::KnownPath file(path);
    const struct stat* status = file.status();
    if (status == nullptr) {
        Clear(ctime, ctime_size);
        Clear(mtime, mtime_size);
        return -1;
    }
    KOLIIndexTimeText(status->st_ctime, ctime, ctime_size);
    KOLIIndexTimeText(status->st_mtime, mtime, mtime_size);
    return 0;
}

}  // extern "C"
