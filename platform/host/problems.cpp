#include "platform/host/problems.h"

#include <ctime>
#include <string>

#include "base/media_info.h"
#include "base/work_report.h"
#include "platform/host/database_groups.h"
#include "platform/host/file_times.h"
#include "platform/host/guard.h"
#include "platform/host/media_rebuild.h"
#include "platform/host/tables.h"
#include "platform/host/text_utf8.h"
#include "platform/kolidb.h"

namespace koli::host {
namespace {

// A file has one row: what the media store told comes before what the photo library tells, which looks at the
// file a moment later. The time is that of the first failure for this reason.
constexpr char kReason[] =
    "CASE WHEN problem.kind < 2 AND excluded.kind >= 2 THEN problem.reason ELSE excluded.reason END";
constexpr char kKind[] =
    "CASE WHEN problem.kind < 2 AND excluded.kind >= 2 THEN problem.kind ELSE excluded.kind END";
constexpr char kTime[] =
    "CASE WHEN problem.kind < 2 AND excluded.kind >= 2 OR problem.reason = excluded.reason THEN problem.time"
    " ELSE excluded.time END";
constexpr char kRemoveOfStore[] = "DELETE FROM problem WHERE path = ?1 AND kind < 2";
constexpr char kRemoveOfPhotos[] = "DELETE FROM problem WHERE path = ?1 AND kind >= 2";
constexpr char kAny[] = "SELECT 1 FROM problem LIMIT 1";
static_assert(KOLI_PROBLEM_PHOTOS == 2);  // the higher bit

enum class Known { kNothing, kEmpty, kFilled };
Known table = Known::kNothing;

void Save(const char* path, std::string_view reason, int kind) {
    if ((kind & KOLI_PROBLEM_PHOTOS) == 0) RebuildNote(kRebuildProblem, path);
    table = Known::kFilled;
    char now[sizeof MediaInfo::ctime];
    std::string scratch;
    WriteLocalTime(time(nullptr), now, sizeof now);
    static const auto* const form =
        new SaveForm{kProblemTable, {"path"}, {{"reason", kReason}, {"kind", kKind}, {"time", kTime}}};
    MediaDatabase().Add(*form, path, Utf8FromUnmarked(reason, &scratch), kind, now);
}

/// Mostly there are none, and nothing is worth a statement for each file.
bool HasRows() {
    if (table == Known::kNothing) {
        const auto found = MediaDatabase().Query(kAny);
        if (found == nullptr) return false;
        table = found->count() > 0 ? Known::kFilled : Known::kEmpty;
    }
    return table == Known::kFilled;
}

}  // namespace

void ProblemBatchBegin() {
    table = Known::kNothing;
}

void ProblemForget(const char* path) {
    MediaDatabase().ChangeLater("DELETE FROM problem WHERE path = ?1", path);
}

void ProblemForgetBelow(const char* path) {
    MediaDatabase().RemoveBelow(kProblemTable, path);
}

void ProblemForgetTable(const char* name) {
    MediaDatabase().Execute(std::string("DELETE FROM problem WHERE path IN (SELECT path FROM ") + name + ")");
}

}  // namespace koli::host

using namespace koli;
using namespace koli::host;

extern "C" {

void KOLIProblemSet(const char* path, const char* reason, int kind) {
    if (path == nullptr || *path == '\0' || reason == nullptr) return;
    WorkProblem(path, reason);
    Guarded(MediaDatabase(), [=] { Save(path, reason, kind); });
}

void KOLIProblemClear(const char* path, int kind) {
    Guarded(MediaDatabase(), [=] {
        if (path != nullptr && HasRows())
            MediaDatabase().ChangeLater((kind & KOLI_PROBLEM_PHOTOS) != 0 ? kRemoveOfPhotos : kRemoveOfStore,
                                        path);
    });
}

}  // extern "C"
