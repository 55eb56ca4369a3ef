#include "photo/photo_trouble.h"

#include "platform/kolidb.h"

namespace koli {

void PhotoTroubleTell(const char* path, const FileReading& reading) {
    if (reading.past() != PastReading::kNothing) {
        KOLIProblemSet(path, kBroughtDown, KOLI_PROBLEM_PHOTOS);
    } else if (*reading.trouble() != '\0') {
        KOLIProblemSet(path, reading.trouble(),
                       KOLI_PROBLEM_PHOTOS | (reading.IsPassing() ? KOLI_PROBLEM_PASSES : 0));
    } else {
        KOLIProblemClear(path);
    }
}

}  // namespace koli
