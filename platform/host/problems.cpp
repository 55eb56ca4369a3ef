#include "platform/host/problems.h"

#include <cctype>
#include <cstring>
#include <ctime>
#include <string>

#include "base/log.h"
#include "base/media_info.h"
#include "base/path_names.h"
#include "platform/host/database_groups.h"
#include "platform/host/file_times.h"
#include "platform/host/media_rebuild.h"
#include "platform/host/tables.h"
#include "platform/host/text_utf8.h"
#include "platform/kolidb.h"

namespace koli::host {
namespace {

// The time is that of the first failure for this reason.
constexpr const char kTime[] =
    "CASE WHEN problem.reason = excluded.reason AND problem.kind = excluded.kind"
    " THEN problem.time ELSE excluded.time END";
constexpr const char kRemoveOfStore[] = "DELETE FROM problem WHERE path = ?1 AND kind < 2";
constexpr const char kRemoveOfPhotos[] = "DELETE FROM problem WHERE path = ?1 AND kind >= 2";
constexpr const char kAnyOfPhotos[] = "SELECT 1 FROM problem WHERE kind >= 2 LIMIT 1";
static_assert(KOLI_PROBLEM_PHOTOS == 2);  // the higher bit
constexpr const char kNoReason[] = "Metadata could not be parsed.";

char saved_path[kPathSize];  // the file saved last, until its event or the next operation; '' = none
char told_path[kPathSize];   // the file whose reason has been told before its event; '' = none

enum class PhotoProblems { kUnknown, kNone, kSome };
PhotoProblems photo_problems = PhotoProblems::kUnknown;

/// The text of a log line without its module and line number, which stand in front in several forms:
/// "m (12) ", "m:12 ", "m(12): ", "(m, 12) ".
const char* WithoutPrefix(const char* line) {
    constexpr size_t kPrefixMax = 64;
    for (size_t at = 1; at < strnlen(line, kPrefixMax); ++at) {
        if (isdigit(static_cast<unsigned char>(line[at])) == 0 || strchr("( :", line[at - 1]) == nullptr)
            continue;
        const size_t end = at + strspn(line + at, "0123456789");
        return line + end + strspn(line + end, "):, -");
    }
    return line;
}

void Save(const char* path, std::string_view reason, int kind) {
    if ((kind & KOLI_PROBLEM_PHOTOS) == 0) RebuildNote(kRebuildProblem, path);
    char now[sizeof MediaInfo::ctime];
    std::string scratch;
    WriteLocalTime(time(nullptr), now, sizeof now);
    MediaDatabase().Change(SaveText(kProblemTable, {"path", "reason", "kind"}, {{"time", kTime}}), path,
                           Utf8FromUnmarked(reason, &scratch), kind, now);
}

/// They are so rare that nothing is worth a statement for each picture.
bool HasPhotoProblems() {
    if (photo_problems == PhotoProblems::kUnknown) {
        const auto found = MediaDatabase().Query(kAnyOfPhotos);
        if (found == nullptr) return false;
        photo_problems = found->count() > 0 ? PhotoProblems::kSome : PhotoProblems::kNone;
    }
    return photo_problems == PhotoProblems::kSome;
}

}  // namespace

void ProblemSaved(const char* path) {
    CopyText(saved_path, sizeof saved_path, path);
}

void ProblemRaised(const char* path) {
    if (strcmp(path, told_path) == 0) return;
    if (strcmp(path, saved_path) == 0) saved_path[0] = '\0';
    ProblemSettle();
    const char* const line = LogFirst();
    Save(path, *line != '\0' ? WithoutPrefix(line) : kNoReason, 0);
}

void ProblemBatchBegin() {
    photo_problems = PhotoProblems::kUnknown;
}

void ProblemSettle() {
    told_path[0] = '\0';
    if (saved_path[0] == '\0') return;
    MediaDatabase().Change(kRemoveOfStore, saved_path);
    saved_path[0] = '\0';
}

void ProblemForget(const char* path) {
    MediaDatabase().Remove(kProblemTable, path);
}

void ProblemForgetBelow(const char* path) {
    MediaDatabase().RemoveBelow(kProblemTable, path);
}

void ProblemForgetTable(const char* table) {
    ProblemSettle();
    MediaDatabase().Execute(std::string("DELETE FROM problem WHERE path IN (SELECT path FROM ") + table +
                            ")");
}

}  // namespace koli::host

using namespace koli;
using namespace koli::host;

extern "C" {

void KOLIProblemSet(const char* path, const char* reason, int kind) {
    if (path == nullptr || *path == '\0' || reason == nullptr) return;
    const bool is_of_photos = (kind & KOLI_PROBLEM_PHOTOS) != 0;
    if (is_of_photos) photo_problems = PhotoProblems::kSome;
    if (!is_of_photos && strcmp(path, saved_path) == 0) saved_path[0] = '\0';
    ProblemSettle();
    Save(path, reason, kind);
    if (!is_of_photos) CopyText(told_path, sizeof told_path, path);
}

void KOLIProblemClear(const char* path) {
    if (path != nullptr && HasPhotoProblems()) MediaDatabase().Change(kRemoveOfPhotos, path);
}

}  // extern "C"
