#include "video/guarded_probe.h"

#include <cerrno>
#include <cstring>

#include "base/log.h"
#include "base/media_fields.h"
#include "base/regular_file.h"
#include "guard/child_heap.h"
#include "guard/probe_guard.h"

namespace koli {
namespace {

constexpr const char kModule[] = "metamedia";

struct ProbedFields {
    template <size_t N>
    void operator()(const MediaField<char[N]>& field) const {
        if ((field.rules & kFieldIsProbed) == 0) return;
        memcpy(record.*field.member, shared.*field.member, N);
        (record.*field.member)[N - 1] = '\0';
    }
    template <typename Number>
    void operator()(const MediaField<Number>& field) const {
        if ((field.rules & kFieldIsProbed) != 0) record.*field.member = shared.*field.member;
    }

    const MediaInfo& shared;
    MediaInfo& record;
};

}  // namespace

int ProbeInChild(const char* path, MediaInfo* record, FileReading& reading, ProbeFunction probe,
                 pid_t parent) {
    ChildHeapUseLargePages();
    const int file = RegularFile(path).Release();  // while there still are the daemon's rights
    if (file < 0) reading.ReadFailedUnlogged(errno);
    if (!ProbeGuardEnter(file, parent)) return reading.CannotParse(kProbeUnguarded), 1;
    if (probe(file, path, record, reading) == 0) return 0;
    KOLI_LOG("Failed to get Misc Media Info from [%s].", path);
    return 1;
}

void ProbedFieldsTake(const MediaInfo& shared, MediaInfo* record) {
    EachMediaField(ProbedFields{shared, *record});
}

}  // namespace koli
