#include "photo/photo_trouble.h"

#include <cerrno>

#include "photo/absence.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"

namespace koli {

void PhotoTroubleTell(const FileReading& reading) {
    const Failure& failure = reading.failure();
    if (reading.past() != PastReading::kNothing) {
        KOLIProblemSet(reading.path(), kBroughtDown, KOLI_PROBLEM_PHOTOS);
    } else if (failure.kind >= FailureKind::kTrouble) {
        const bool passes = failure.kind == FailureKind::kPassing;
        KOLIProblemSet(reading.path(), failure.reason,
                       KOLI_PROBLEM_PHOTOS | (passes ? KOLI_PROBLEM_PASSES : 0));
    } else {
        KOLIProblemClear(reading.path(), KOLI_PROBLEM_PHOTOS);
    }
}

bool PictureSizeGet(const char* path, int* width, int* height, FileReading& reading) {
    if (KOLIIndexImgResGet(path, width, height) == 0) return true;
    const int error = errno;
    if (MeansAbsent(error)) return false;
    reading.ReadFailed(error);
    reading.Trouble(error != 0 ? "the file cannot be read" : "the size of the picture cannot be read", error);
    return false;
}

}  // namespace koli
