#include "photo/photo_trouble.h"

#include "platform/kolidb.h"

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

}  // namespace koli
